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
cleanup() {
  [ -z "$sim_pid" ] || kill "$sim_pid" 2>/dev/null || true  # it may have ended already
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
