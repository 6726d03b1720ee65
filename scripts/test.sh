#!/usr/bin/env bash
# Builds the library and its tests, then runs them (also under AddressSanitizer and
# UndefinedBehaviorSanitizer).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh build
(cd build && ctest --output-on-failure -j "$(nproc 2>/dev/null || echo 2)")
