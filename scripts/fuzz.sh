#!/usr/bin/env bash
# Runs a fuzz target (fuzz/fuzz_TARGET.cpp, the prefix may be left out) for SECONDS on a copy
# of its seed corpus, or every target in turn with "all". Builds build-fuzz first when it is
# missing or older than the sources. Prints libFuzzer's final statistics; fails on a finding
# (its reproducer is left in build-fuzz/findings/).
#   bash scripts/fuzz.sh document_walk 60      bash scripts/fuzz.sh all 20
set -euo pipefail
cd "$(dirname "$0")/.."
[ $# -eq 2 ] || { echo "usage: $0 TARGET|all SECONDS" >&2; exit 2; }
target=$1 seconds=$2

stale=$(find fuzz platform src include CMakeLists.txt -newer build-fuzz/fuzz/fuzz_document_walk \
        -print -quit 2>/dev/null || echo missing)
if [ ! -x build-fuzz/fuzz/fuzz_document_walk ] || [ -n "$stale" ]; then
  CC=clang CXX=clang++ bash scripts/build.sh build-fuzz -DKAL_FUZZ=ON >/dev/null
fi

if [ "$target" = all ]; then
  status=0
  for source in fuzz/fuzz_*.cpp; do
    bash "$0" "$(basename "$source" .cpp)" "$seconds" || status=1
  done
  exit $status
fi

name=fuzz_${target#fuzz_}
[ -x "build-fuzz/fuzz/$name" ] || { echo "fuzz: no target $name" >&2; exit 2; }
# The target's own files go in the work directory too, so that a crash leaves none behind.
shm=/dev/shm; [ -d "$shm" ] || shm=${TMPDIR:-/tmp}
work=$(mktemp -d "$shm/$name.XXXXXX")
trap 'rm -rf "$work"' EXIT
cp -r "fuzz/corpus/$name" "$work/corpus"
mkdir -p build-fuzz/findings
echo "fuzz: $name for $seconds s"
set +e
TMPDIR=$work ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
  "build-fuzz/fuzz/$name" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
  -print_final_stats=1 -artifact_prefix="build-fuzz/findings/$name-" "$work/corpus" \
  >"$work/log" 2>&1
status=$?
set -e
# The last lines say how the run went: the statistics, or the finding and its stack.
if [ $status -eq 0 ]; then
  grep -E '^(Done|stat::|#[0-9]+\s+DONE)' "$work/log"
else
  tail -n 60 "$work/log"
  echo "fuzz: $name found a fault (exit status $status)" >&2
fi
exit $status
