#!/usr/bin/env bash
# Builds the fuzz targets with clang, libFuzzer, AddressSanitizer and UndefinedBehaviorSanitizer
# into build-fuzz/. Run one with, e.g.: build-fuzz/fuzz_xml_parse -max_total_time=600 corpus/
set -euo pipefail
cd "$(dirname "$0")/.."
exec 9>/tmp/kalvorla-build.lock
flock 9
mkdir -p build-fuzz
flags=(-std=c++17 -O1 -g -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined
       -Iplatform -Iinclude)
for target in fuzz/fuzz_*.cpp; do
  name=$(basename "$target" .cpp)
  clang++ "${flags[@]}" "$target" platform/KalLightXml*.cpp platform/KalXml*.cpp \
    platform/KalUnicodeString.cpp -o "build-fuzz/$name"
done
