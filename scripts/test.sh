#!/usr/bin/env bash
# Builds everything and runs the whole suite twice: a normal build, then under ASan+UBSan;
# in between, the Windows component under Wine (scripts/test-windows.sh); then the soak (slow,
# left out of the quick ctest run) and a replay of every fuzz corpus.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
jobs=$(nproc)

# One style for the whole tree.
clang-format --dry-run -Werror $(git ls-files '*.cpp' '*.h')

cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/release -j "$jobs"
cmake --build build/release --target docs  # the API reference: a header comment Doxygen cannot read fails
ctest --test-dir build/release --output-on-failure -j "$jobs"
ctest --test-dir build/release --output-on-failure -C soak -L soak
# The Debian packages, built from the release build and checked unpacked.
scripts/test-packages.sh build/release

# The Windows component, cross-built and run under Wine against the simulators just built.
VMIO_NATIVE_BUILD=build/release scripts/test-windows.sh

cmake -S . -B build/asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVMIO_SANITIZE=ON >/dev/null
cmake --build build/asan -j "$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build/asan --output-on-failure -j "$jobs"

# The coroutines under clang too (the two compilers lay out coroutine frames apart): the
# engine's own tests, and every make's exchanges through the shared rules and the engine.
cmake -S . -B build/asan-clang -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVMIO_SANITIZE=ON \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ >/dev/null
cmake --build build/asan-clang -j "$jobs" --target test_engine test_integration
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build/asan-clang --output-on-failure -j "$jobs" -R '^(Engine|EveryMake|Fleet)'

scripts/fuzz-replay.sh
