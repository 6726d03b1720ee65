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
# The whole export of each document, as a user runs it: seconds and peak memory.
for n in 20000 200000; do
  python3 - "$out/assembly-$n.vorla" "$out/assembly-$n.glb" ./build/vorla <<'PY'
import resource, subprocess, sys, time
doc, glb, vorla = sys.argv[1:]
start = time.time()
subprocess.run([vorla, "export", doc, "-o", glb, "--force", "--quiet"], check=True,
               stderr=subprocess.DEVNULL)
seconds = time.time() - start
peak = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss / 1024
print(f"vorla export of {doc}: {seconds:.2f} s, peak {peak:.0f} MB")
PY
done
