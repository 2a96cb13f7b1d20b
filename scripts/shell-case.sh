#!/usr/bin/env bash
# Runs one black-box shell case through a program that speaks the shell's line protocol.
#   scripts/shell-case.sh CASE.txt VMIO-SIM SHELL-COMMAND...
# A case file holds "@sim ARGS" (the simulator to start, if any), "> COMMAND" lines and, after
# each, the result line expected for it; "#" lines are comments. In commands and sim
# arguments, ${DEVICE} is what the simulator prints to give Connect and ${LOOPBACK} a
# 127.x.y.z address of this run's own (so parallel runs never share a port). The same case
# files run through `vmio shell` and through `vmio-com-shell.exe` under Wine.
set -euo pipefail
case_file=$1 sim=$2
shift 2
work=$(mktemp -d)
sim_pid=
cleanup() {
  [ -n "$sim_pid" ] && kill "$sim_pid" 2>/dev/null && wait "$sim_pid" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

loopback="127.$((RANDOM % 200 + 20)).$((RANDOM % 250 + 1)).$((RANDOM % 250 + 1))"
device=
sim_args=$(sed -n 's/^@sim //p' "$case_file")
if [ -n "$sim_args" ]; then
  sim_args=${sim_args//'${LOOPBACK}'/$loopback}
  # The files exist before the simulator starts writing them: the wait below reads them at once.
  : >"$work/sim.out"
  : >"$work/sim.err"
  # shellcheck disable=SC2086
  "$sim" $sim_args </dev/null >>"$work/sim.out" 2>>"$work/sim.err" &
  sim_pid=$!
  for _ in $(seq 300); do  # up to 30 s: a loaded machine starts it slowly
    device=$(sed -n 's/^device: //p' "$work/sim.out")
    [ -n "$device" ] && break
    kill -0 "$sim_pid" 2>/dev/null || break
    sleep 0.1
  done
  if [ -z "$device" ]; then
    echo "$case_file: the simulator did not start: $(cat "$work/sim.err")" >&2
    exit 1
  fi
  # A simulator found through the environment prints VMIO_NAME=VALUE: the program gets it.
  while IFS= read -r setting; do
    export "${setting?}"
  done < <(grep -E '^VMIO_[A-Z0-9_]+=' "$work/sim.out" || true)
  # VMIO_DEVICE_MAP, when set, names a command that prints the device to give Connect in place
  # of the simulator's (a run under Wine gives a terminal device's COM port number).
  if [ -n "${VMIO_DEVICE_MAP:-}" ]; then
    device=$("$VMIO_DEVICE_MAP" "$device")
  fi
fi

# Commands, and the expected result lines in order.
grep '^> ' "$case_file" | cut -c3- | sed "s|\${DEVICE}|$device|g; s|\${LOOPBACK}|$loopback|g" >"$work/commands"
grep -v -e '^> ' -e '^@sim ' -e '^#' -e '^[[:space:]]*$' "$case_file" >"$work/expected" || true
"$@" <"$work/commands" | tr -d '\r' >"$work/actual"
if ! diff -u "$work/expected" "$work/actual" >"$work/diff"; then
  echo "$case_file: results differ (expected, actual):" >&2
  cat "$work/diff" >&2
  exit 1
fi
echo "ok $(basename "$case_file")"
