#!/usr/bin/env bash
# Runs each fuzz target (or only the TARGETs named) for SECONDS (default 60), one after the
# other, starting from its committed seeds; new inputs go to build/fuzz/work/<target>, crashes
# to build/fuzz/crash/.
# A finding worth keeping becomes a seed under fuzz/corpus/<target>/ with its fix.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true
scripts/fuzz-build.sh >/dev/null
export ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
mkdir -p build/fuzz/crash
status=0
targets=("$@")
for corpus in fuzz/corpus/*/; do
  name=$(basename "$corpus")
  [[ ${#targets[@]} -eq 0 || " ${targets[*]} " == *" $name "* ]] || continue
  mkdir -p "build/fuzz/work/$name"
  log="build/fuzz/work/$name.log"
  if build/fuzz/fuzz/fuzz_"$name" -max_total_time="$seconds" -print_final_stats=1 -max_len=4096 \
      -artifact_prefix="build/fuzz/crash/$name-" "build/fuzz/work/$name" "$corpus" >"$log" 2>&1; then
    result=ok
  else
    result="FINDING (see $log)"
    status=1
  fi
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  echo "fuzz $name: ${runs:-?} executions in ${seconds} s: $result"
done
exit $status
