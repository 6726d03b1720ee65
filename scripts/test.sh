#!/usr/bin/env bash
# Builds the library and its tests and runs them twice: an optimised build, then one under
# AddressSanitizer (leaks included) and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
jobs=$(nproc 2>/dev/null || echo 2)

bash scripts/build.sh build
(cd build && ctest --output-on-failure -j "$jobs")

bash scripts/build.sh build-asan -DKAL_SANITIZE=ON -DKAL_BUILD_BENCH=OFF -DCMAKE_BUILD_TYPE=Debug
(cd build-asan && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --output-on-failure -j "$jobs")

# Each fuzz target for about 20 seconds under AddressSanitizer and UndefinedBehaviorSanitizer,
# from its seed corpus; a finding fails the run.
bash scripts/fuzz.sh all 20
