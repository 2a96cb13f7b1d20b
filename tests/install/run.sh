#!/usr/bin/env bash
# Installs a build to a temporary prefix, then builds programs outside the tree against it
# (through find_package and through pkg-config) and lists a simulated camera's ports with them.
# usage: run.sh BUILD_DIR
set -euo pipefail
build=$(cd "$1" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
sim_pid=
cleanup() {
  [ -n "$sim_pid" ] && kill "$sim_pid" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null
libdir=$(dirname "$(find "$prefix" -name 'libvmio.so.0' | head -n1)")

# One library, named by its SONAME, exporting the public interface only.
readelf -d "$libdir/libvmio.so.0" | grep 'SONAME.*\[libvmio\.so\.0\]' >/dev/null
exported=$(nm -DC --defined-only "$libdir/libvmio.so.0")
grep ' vmio_connect$' <<<"$exported" >/dev/null
grep 'vmio::CreateObject' <<<"$exported" >/dev/null
if grep -E 'HTTPClient|ModbusT|PortTableDevice' <<<"$exported"; then
  echo "internal classes are exported" >&2
  exit 1
fi
# A host cannot replace the library's clock: that seam is for the test programs.
if grep -E 'TickSource' <<<"$exported"; then
  echo "the test clock's seam is exported" >&2
  exit 1
fi
for f in include/vmio/vmio.h include/vmio/version.h bin/vmio bin/vmio-sim "share/vmio/LogIT Sensors.txt" \
  lib/udev/rules.d/60-vmio-logit.rules share/man/man1/vmio.1 \
  share/man/man1/vmio-sim.1 share/bash-completion/completions/vmio share/bash-completion/completions/vmio-sim \
  bin/vmio-gateway share/man/man1/vmio-gateway.1 lib/systemd/system/vmio-gateway.service; do
  [ -e "$prefix/$f" ] || { echo "not installed: $f" >&2; exit 1; }
done
# Nothing but programs in bin/.
[ "$(ls "$prefix/bin")" == "$(printf 'vmio\nvmio-gateway\nvmio-sim')" ] || { echo "bin/ holds: $(ls "$prefix/bin")" >&2; exit 1; }
# vmio is a host of the shared library, which it finds where it is installed.
vmio_libs=$(LD_LIBRARY_PATH=$libdir ldd "$prefix/bin/vmio")
grep -q "libvmio.so.0 => $libdir/libvmio.so.0" <<<"$vmio_libs"
if grep -E 'modbus|httplib' <<<"$vmio_libs"; then
  echo "vmio links the simulators' libraries" >&2
  exit 1
fi
[[ $(LD_LIBRARY_PATH=$libdir "$prefix/bin/vmio" --version) =~ ^vmio\ [0-9]+\.[0-9]+\.[0-9]+$ ]]

# A simulated camera to list.
mkfifo "$work/sim-in"
"$prefix/bin/vmio-sim" axis --listen 127.0.0.1:0 --name-input 1=Door <"$work/sim-in" >"$work/sim-out" &
sim_pid=$!
exec 3>"$work/sim-in"
for _ in $(seq 100); do grep -q '^device: ' "$work/sim-out" && break; sleep 0.1; done
device=$(sed -n 's/^device: //p' "$work/sim-out")
[ -n "$device" ]

expect_ports() {
  local output
  output=$("$@" VMIO.Axis "$device")
  grep -q '^vmio .*: 6 ports$' <<<"$output" && grep -q '^0 Door = 0$' <<<"$output" || {
    echo "unexpected output of $1:" >&2
    echo "$output" >&2
    exit 1
  }
}

# Through find_package, against the shared and the static library.
cmake -S "$here/consumer" -B "$work/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/consumer" >"$work/consumer.log" || { cat "$work/consumer.log" >&2; exit 1; }
expect_ports "$work/consumer/list_ports"
expect_ports "$work/consumer/list_ports_static"
# The shared library needs neither libcurl's nor OpenSSL's development files: a host that
# does not find them still gets vmio::vmio (and no vmio::vmio_static).
cmake -S "$here/consumer" -B "$work/shared-only" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" -DVMIO_SHARED_ONLY=ON \
  -DCMAKE_DISABLE_FIND_PACKAGE_CURL=ON -DCMAKE_DISABLE_FIND_PACKAGE_OpenSSL=ON >"$work/shared-only.log" ||
  { cat "$work/shared-only.log" >&2; exit 1; }
cmake --build "$work/shared-only" >>"$work/shared-only.log" || { cat "$work/shared-only.log" >&2; exit 1; }
expect_ports "$work/shared-only/list_ports"

# Through pkg-config, from C++ and from C.
export PKG_CONFIG_PATH=$libdir/pkgconfig
# shellcheck disable=SC2046
c++ -std=c++20 "$here/consumer/list_ports.cpp" $(pkg-config --cflags --libs vmio) -o "$work/pc_cpp"
# shellcheck disable=SC2046
cc -std=c99 -Wall -Wextra -Wpedantic -Werror "$here/consumer/list_ports.c" $(pkg-config --cflags --libs vmio) \
  -o "$work/pc_c"
LD_LIBRARY_PATH=$libdir expect_ports "$work/pc_cpp"
LD_LIBRARY_PATH=$libdir expect_ports "$work/pc_c"
echo "installed vmio builds and runs from outside the tree"
