#!/usr/bin/env bash
# Builds the library and runs the example program on the bundled sample document.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh build
./build/print_root examples/sample.vorla
