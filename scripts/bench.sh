#!/usr/bin/env bash
# Generates the 20,000- and 200,000-instance documents (once) and prints the load,
# traversal and geometry tables and times vorla export. Documents go to $VORLA_BENCH_DIR (default /tmp/vorla-bench).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh build -DKAL_BUILD_BENCH=ON >/dev/null
out=${VORLA_BENCH_DIR:-/tmp/vorla-bench}
mkdir -p "$out"
for n in 20000 200000; do
  [ -f "$out/assembly-$n.vorla" ] || python3 bench/gen_vorla.py --instances "$n" --seed 1 "$out/assembly-$n.vorla" >/dev/null
done
./build/bench/vorla_load_bench --runs "${RUNS:-5}" "$out/assembly-20000.vorla" "$out/assembly-200000.vorla"
./build/bench/vorla_xml_bench --runs "${RUNS:-5}" "$out/assembly-200000.vorla"
./build/bench/vorla_traversal_bench --runs "${RUNS:-5}" "$out/assembly-20000.vorla" "$out/assembly-200000.vorla"
[ -x ./build/bench/vorla_geometry_bench ] && ./build/bench/vorla_geometry_bench
# The whole export of each document, as a user runs it, against a cold InitParsing of the same
# document in a fresh process: runs interleaved, medians, so that a busy machine weighs on both.
python3 - "$out" ./build/vorla ./build/bench/vorla_load_bench "${RUNS:-5}" <<'PY'
import os, statistics, subprocess, sys, time
out, vorla, load_bench, runs = sys.argv[1], sys.argv[2], sys.argv[3], int(sys.argv[4])
print("\n| document | cold InitParsing s | vorla export s | export / InitParsing | export peak MB |")
print("| --- | --- | --- | --- | --- |")
for n in (20000, 200000):
    doc, glb = f"{out}/assembly-{n}.vorla", f"{out}/assembly-{n}.glb"
    loads, exports, peak = [], [], 0
    for _ in range(runs):
        line = subprocess.run([load_bench, "--child", "load", doc], check=True,
                              capture_output=True, text=True).stdout
        loads.append(float(line.split()[0]))
        start = time.time()
        child = subprocess.Popen([vorla, "export", doc, "-o", glb, "--force", "--quiet"],
                                 stderr=subprocess.DEVNULL)
        _, status, usage = os.wait4(child.pid, 0)
        exports.append(time.time() - start)
        if status != 0:
            sys.exit(f"vorla export of {doc} failed")
        peak = max(peak, usage.ru_maxrss / 1024)
    load, export = statistics.median(loads), statistics.median(exports)
    print(f"| {doc} | {load:.3f} | {export:.3f} | {export / load:.2f} | {peak:.0f} |")
print("\ntarget: export of the 200,000-instance document <= 3 x its InitParsing")
PY
