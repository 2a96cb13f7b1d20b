# shellcheck shell=bash disable=SC2034  # sets variables for the script that sources it
# Sourced by the host tests: make_prefix BUILD_DIR DIR makes DIR a Python virtual environment
# (with the system's site packages: pip, pytest, mypy, setuptools and wheel from Debian) and installs
# there the build's library, headers and programs (cmake --install) and the Python package,
# as a wheel built offline from a copy of python/ (a build in place would write into the tree).
# It sets python to the environment's interpreter and wheel to the wheel built.
make_prefix() {
  local build=$1 dir=$2 source
  source=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
  local system_python=/usr/bin/python3  # Debian's, which has the packages scripts/deps.sh installs
  [ -x "$system_python" ] || system_python=$(command -v python3)
  "$system_python" -m venv --system-site-packages --without-pip "$dir"  # Debian's pip serves it
  cmake --install "$build" --prefix "$dir" >/dev/null
  python=$dir/bin/python
  cp -rL "$source/python" "$dir/package-source"
  "$python" -m pip wheel -q --no-build-isolation --no-deps --no-index -w "$dir/dist" "$dir/package-source"
  wheel=$(echo "$dir"/dist/vmio-*.whl)
  "$python" -m pip install -q --no-deps --no-index "$wheel"
}

# start_sim DIR MAKE [OPTION...]: runs DIR/bin/vmio-sim with its control lines on descriptor 3,
# sets sim_pid and device (the device string it prints).
start_sim() {
  local dir=$1
  shift
  mkfifo "$dir/sim-in"
  "$dir/bin/vmio-sim" "$@" --listen 127.0.0.1:0 <"$dir/sim-in" >"$dir/sim-out" &
  sim_pid=$!
  exec 3>"$dir/sim-in"
  for _ in $(seq 100); do grep -q '^device: ' "$dir/sim-out" && break; sleep 0.1; done
  device=$(sed -n 's/^device: //p' "$dir/sim-out")
  [ -n "$device" ] || { echo "vmio-sim printed no device" >&2; return 1; }
}

# send_sim DIR LINE: a control line to the simulator start_sim ran in DIR; returns once it answered.
send_sim() {
  local before
  before=$(wc -l <"$1/sim-out")
  echo "$2" >&3
  for _ in $(seq 100); do (($(wc -l <"$1/sim-out") > before)) && return; sleep 0.1; done
  echo "vmio-sim did not answer '$2'" >&2
  return 1
}
