#!/usr/bin/env bash
# Packs examples/sample/ into the bundled sample archive examples/sample.vorla (the manifest
# first, as writers of the format do).
set -euo pipefail
cd "$(dirname "$0")/../examples/sample"
rm -f ../sample.vorla
zip -q -X ../sample.vorla Manifest.xml DeskLamp.vorla
