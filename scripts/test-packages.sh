#!/usr/bin/env bash
# Builds the Debian packages from a build (cpack) and checks them: each holds what it should
# and nothing else, the command line links the shared library and no simulator library, and
# the tools run from an unpacked tree, finding the sensor table in share/vmio.
# usage: test-packages.sh [BUILD_DIR]   (default build/release, already built)
set -euo pipefail
source=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$source/build/release}" && pwd)
work=$(mktemp -d)
sim_pid=
cleanup() {
  [ -n "$sim_pid" ] && kill "$sim_pid" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT
fail() {
  echo "test-packages: $*" >&2
  exit 1
}

(cd "$build" && cpack -G DEB -B "$work/debs" >"$work/cpack.log" 2>&1) || { cat "$work/cpack.log" >&2; fail "cpack failed"; }
version=$(sed -n 's/^#define VMIO_VERSION_STRING "\([^"]*\)".*$/\1/p' "$build/include/vmio/version.h")
deb() { echo "$work/debs/$1_${version}_$(dpkg --print-architecture).deb"; }
for p in libvmio0 libvmio-dev vmio-tools vmio-gateway; do [ -f "$(deb $p)" ] || fail "no package $p"; done

# The files of each package, without the folders, with the install prefix's "./usr/" cut.
files() { dpkg-deb -c "$(deb "$1")" | grep -v '^d' | sed -E 's/^([^ ]+ +){5}//; s/ -> .*//; s|^\./usr/||' | sort; }
expect_files() {
  local package=$1
  shift
  local want
  want=$(printf '%s\n' "$@" | sort)
  [ "$(files "$package")" == "$want" ] || fail "$package holds:
$(files "$package")
expected:
$want"
}
lib=$(files libvmio0 | sed -n 's|/libvmio\.so\.0$||p')
[ -n "$lib" ] || fail "libvmio0 has no libvmio.so.0"
expect_files libvmio0 "$lib/libvmio.so.0" "$lib/libvmio.so.$version" "share/vmio/LogIT Sensors.txt"
# Every public header, and the CMake package with its shared and static targets (one file of
# each per build type).
headers=$(cd "$source/include" && ls vmio/*.h | sed 's|^|include/|')
expect_files libvmio-dev $headers include/vmio/version.h "$lib/libvmio.so" "$lib/libvmio.a" \
  "$lib/pkgconfig/vmio.pc" "$lib/cmake/vmio/vmio-config.cmake" "$lib/cmake/vmio/vmio-config-version.cmake" \
  "$lib/cmake/vmio/vmio-targets.cmake" "$lib/cmake/vmio/vmio-static-targets.cmake" \
  $(files libvmio-dev | grep -E "^$lib/cmake/vmio/vmio-(static-)?targets-[a-z]+\.cmake$")
expect_files vmio-tools bin/vmio bin/vmio-sim lib/udev/rules.d/60-vmio-logit.rules share/man/man1/vmio.1 \
  share/man/man1/vmio-sim.1 share/bash-completion/completions/vmio share/bash-completion/completions/vmio-sim
dpkg-deb -f "$(deb libvmio-dev)" Depends | grep -q "libvmio0 (= $version)" || fail "libvmio-dev does not depend on libvmio0"
dpkg-deb -f "$(deb vmio-tools)" Depends | grep -q "libvmio0 (= $version)" || fail "vmio-tools does not depend on libvmio0"
expect_files vmio-gateway bin/vmio-gateway lib/systemd/system/vmio-gateway.service share/man/man1/vmio-gateway.1 \
  share/doc/vmio-gateway/example.yaml
dpkg-deb -f "$(deb vmio-gateway)" Depends | grep -q "libvmio0 (= $version)" || fail "vmio-gateway does not depend on libvmio0"
dpkg-deb -f "$(deb vmio-gateway)" Depends | grep -q "libmosquitto1" || fail "vmio-gateway does not depend on libmosquitto1"

# Unpacked as dpkg would install them, minus the system's library path.
root=$work/root
for p in libvmio0 vmio-tools vmio-gateway; do dpkg -x "$(deb $p)" "$root"; done
export LD_LIBRARY_PATH=$root/usr/$lib
vmio=$root/usr/bin/vmio
needed=$(readelf -d "$vmio" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
grep -qx 'libvmio.so.0' <<<"$needed" || fail "vmio does not link libvmio.so.0: $needed"
! grep -E 'modbus|httplib|ssl|crypto|curl' <<<"$needed" || fail "vmio links more than libvmio"
ldd "$vmio" | grep -q "libvmio.so.0 => $root/usr/$lib/libvmio.so.0" || fail "vmio does not load the unpacked libvmio"

[[ $("$vmio" --version) == "vmio $version" ]] || fail "vmio --version"
[[ $("$root/usr/bin/vmio-sim" --version) == "vmio-sim $version" ]] || fail "vmio-sim --version"
[[ $("$root/usr/bin/vmio-gateway" --version) == "vmio-gateway $version" ]] || fail "vmio-gateway --version"
readelf -d "$root/usr/bin/vmio-gateway" | grep -q 'NEEDED.*\[libvmio.so.0\]' || fail "vmio-gateway does not link libvmio.so.0"
"$root/usr/bin/vmio-gateway" --check "$root/usr/share/doc/vmio-gateway/example.yaml" >/dev/null 2>&1 &&
  fail "vmio-gateway --check accepted the example without its password variable"
FRONT_CAMERA_PASSWORD=x "$root/usr/bin/vmio-gateway" --check "$root/usr/share/doc/vmio-gateway/example.yaml" >/dev/null ||
  fail "vmio-gateway --check refused the example"
"$vmio" classes | grep -q '^VMIO.Axis  *axis  ' || fail "vmio classes"

# A simulated logger: its sensor names come from the table in share/vmio.
: >"$work/sim-out"
"$root/usr/bin/vmio-sim" logit </dev/null >"$work/sim-out" &
sim_pid=$!
for _ in $(seq 100); do grep -q '^device: ' "$work/sim-out" && break; sleep 0.1; done
device=$(sed -n 's/^device: //p' "$work/sim-out")
sysfs=$(sed -n 's/^root: //p' "$work/sim-out")
[ -n "$device" ] || fail "vmio-sim logit did not start"
ports=$(VMIO_SYSFS_ROOT=$sysfs "$vmio" ports logit "$device")
grep -q '^0  *Temperature  ' <<<"$ports" || fail "the sensor table was not found in share/vmio:
$ports"
echo "packages: $(cd "$work/debs" && ls ./*.deb | tr '\n' ' ')built and checked"
