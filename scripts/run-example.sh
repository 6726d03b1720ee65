#!/usr/bin/env bash
# Builds everything, then shows the bundled sample's product structure and exports it to glTF.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh build
./build/vorla tree examples/sample.vorla
./build/vorla export examples/sample.vorla -o build/sample.glb --force
echo "The sample's glTF is $(pwd)/build/sample.glb"
