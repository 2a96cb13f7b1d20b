#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (ASan + UBSan) into build/fuzz.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build/fuzz -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DVMIO_BUILD_FUZZ=ON -DVMIO_BUILD_TESTS=OFF -DVMIO_BUILD_BENCH=OFF >/dev/null
cmake --build build/fuzz -j "$(nproc)" --target fuzz_all
