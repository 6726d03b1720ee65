#!/usr/bin/env bash
# Configures and builds into the given directory (default: build); extra arguments go to
# CMake. Builds hold a lock so that two builds never share the machine's cores.
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${1:-build}
shift || true
jobs=$(nproc 2>/dev/null || echo 2)
exec 9>/tmp/kalvorla-build.lock
flock 9
cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
cmake --build "$dir" -j "$jobs"
