#!/usr/bin/env bash
# The example hosts in examples/, built against an installed prefix (find_package) and run
# against a simulated camera: the C, the C++ and the Python one must list the same ports.
# usage: examples.sh BUILD_DIR
set -euo pipefail
build=$(cd "$1" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=SCRIPTDIR/prefix.sh
source "$here/prefix.sh"
work=$(mktemp -d)
sim_pid=
fleet_pid=
cleanup() {
  [ -z "$sim_pid" ] || kill "$sim_pid" 2>/dev/null || true  # it may have ended already
  [ -z "$fleet_pid" ] || kill "$fleet_pid" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
unset VMIO_LIBRARY LD_LIBRARY_PATH PYTHONPATH
export PYTHONDONTWRITEBYTECODE=1

make_prefix "$build" "$work/env"
cmake -S "$here/../../examples" -B "$work/examples" -G Ninja -DCMAKE_PREFIX_PATH="$work/env" \
  -DCMAKE_C_FLAGS="-Wall -Wextra -Wpedantic -Werror" -DCMAKE_CXX_FLAGS="-Wall -Wextra -Wpedantic -Werror" >/dev/null
cmake --build "$work/examples" >"$work/examples.log" || { cat "$work/examples.log" >&2; exit 1; }

start_sim "$work/env" axis --inputs 2 --outputs 2 --name-input 1=Door --name-input 2=Window \
  --name-output 1=Light --name-output 2=Siren
send_sim "$work/env" "input 1 on"
send_sim "$work/env" "output 2 on"
printf -v expected '%s\n' "4 ports" "0	Door	input	on" "1	Window	input	off" "2	Light	bidirectional	off" \
  "3	Siren	bidirectional	on"
expect_ports() {
  local output
  output=$("$@" "$device")
  [ "$output"$'\n' == "$expected" ] || {
    printf 'unexpected output of %s:\n%s\nexpected:\n%s' "$*" "$output" "$expected" >&2
    exit 1
  }
}
expect_ports "$work/examples/list_ports_c"
expect_ports "$work/examples/list_ports_cpp"
expect_ports "$python" "$here/../../examples/list_ports.py"
echo "the C, C++ and Python examples list the simulated camera's ports"

# The fleet hosts: 100 devices, 5 of them dead (3 silent, one a module; 2 never accepting), on
# one thread each in C (its own poll loop) and Python (asyncio). Every live device comes online
# and stays fresh (never stale) while the dead ones are offline.
mkfifo "$work/fleet-in"  # its standard input stays open while descriptor 4 holds the pipe
"$work/env/bin/vmio-sim" fleet --devices 100 --adam 34 --silent 3 --unaccepting 2 --base 127.253.0.1 \
  --list "$work/fleet.list" <"$work/fleet-in" >"$work/fleet-out" &
fleet_pid=$!
exec 4>"$work/fleet-in"
for _ in $(seq 100); do grep -q '^device: fleet' "$work/fleet-out" && break; sleep 0.1; done
grep -q '^device: fleet of 100' "$work/fleet-out" || { echo "vmio-sim fleet did not start" >&2; exit 1; }
expect_fleet() {
  local output
  output=$("$@" "$work/fleet.list" 4 500)
  [[ $output =~ ^"devices 100: online 95, stale 0, offline 5, connecting 0; all values in "[0-9]+" ms; went stale 0 times in 4 s"$ ]] || {
    printf 'unexpected output of %s:\n%s\n' "$*" "$output" >&2
    exit 1
  }
  echo "$output"
}
expect_fleet "$work/examples/watch_fleet_c"
expect_fleet "$python" "$here/../../examples/watch_fleet.py"
echo "the C and Python fleet examples keep 95 live devices fresh beside 5 dead ones"
