#!/usr/bin/env bash
# Replays every committed corpus (fuzz/corpus/<target>/) through its target once: fast and
# deterministic, a regression gate rather than a search.
set -euo pipefail
cd "$(dirname "$0")/.."
mkdir -p build
# The build's own output only when it fails: the compiler's messages are the reason.
scripts/fuzz-build.sh >build/fuzz-build.log 2>&1 || { tail -n 60 build/fuzz-build.log; echo "fuzz build failed"; exit 1; }
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
for corpus in fuzz/corpus/*/; do
  name=$(basename "$corpus")
  mapfile -t seeds < <(find "$corpus" -type f | sort)
  build/fuzz/fuzz/fuzz_"$name" -runs=1 "${seeds[@]}" >/dev/null 2>"build/fuzz/replay-$name.log" ||
    { cat "build/fuzz/replay-$name.log"; echo "fuzz replay failed: $name"; exit 1; }
  echo "fuzz replay: $name, ${#seeds[@]} inputs"
done
