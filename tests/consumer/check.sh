#!/usr/bin/env bash
# Installs the build in $1 into a temporary prefix, then builds a consumer program against
# the installed CMake package and another with pkg-config, and runs both on the document $2.
set -euo pipefail
build=$1
document=$2
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" >/dev/null
cmake -S "$here" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/consumer" >/dev/null
test "$("$work/consumer/consumer" "$document")" = "Desk lamp"
pc=$(dirname "$(find "$work/prefix" -name kalvorlaimporttools.pc)")
flags=$(PKG_CONFIG_PATH=$pc pkg-config --cflags --libs kalvorlaimporttools)
g++ -std=c++17 "$here/main.cpp" -o "$work/with-pkg-config" $flags
test "$(LD_LIBRARY_PATH=$(dirname "$pc") "$work/with-pkg-config" "$document")" = "Desk lamp"
test -x "$work/prefix/bin/vorla"
echo "installed package: CMake and pkg-config consumers read the sample"
