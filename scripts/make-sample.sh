#!/usr/bin/env bash
# Rebuilds the bundled sample document: scripts/make-sample.py writes the XML sources into
# examples/sample/, which are then packed into examples/sample.vorla (the manifest first, as
# writers of the format do). The archive's bytes are reproducible: extra file attributes are
# left out (zip -X) and every entry gets the same fixed time stamp.
set -euo pipefail
cd "$(dirname "$0")/.."
python3 scripts/make-sample.py
files=(Manifest.xml Assembly.vorla Fasteners.vorla)
staging=$(mktemp -d)
trap 'rm -rf "$staging"' EXIT
for f in "${files[@]}"; do
  cp examples/sample/"$f" "$staging"/
  TZ=UTC touch -t 202401010000 "$staging/$f"
done
rm -f examples/sample.vorla
archive=$(pwd)/examples/sample.vorla
(cd "$staging" && TZ=UTC zip -q -X "$archive" "${files[@]}")
echo "wrote $archive"
