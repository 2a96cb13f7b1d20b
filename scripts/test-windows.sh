#!/usr/bin/env bash
# The Windows component: cross-builds vmio.dll (64- and 32-bit) and vmio-com-shell.exe with
# mingw-w64, checks the DLLs' exports and imports, then in a fresh Wine prefix registers the
# 64-bit DLL, runs the shared shell cases through vmio-com-shell.exe against the simulators
# (built natively), runs a VBScript under cscript, unregisters and checks the keys are gone;
# then the same with the 32-bit DLL through 32-bit Wine (scripts/deps-wine32.sh installs it).
# VMIO_NATIVE_BUILD names the native build tree to take vmio-sim from (default build/release).
set -euo pipefail
cd "$(dirname "$0")/.."
started=$(date +%s)
scripts/deps.sh $(grep -v '^#' scripts/deps-windows.txt)

native=${VMIO_NATIVE_BUILD:-build/release}
[ -f "$native/build.ninja" ] || cmake -S . -B "$native" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$native" --target vmio-sim >/dev/null
sim=$native/sim/vmio-sim

expected_exports=$'DllCanUnloadNow\nDllGetClassObject\nDllRegisterServer\nDllUnregisterServer'
for arch in x86_64 i686; do
  tree=build/windows-$arch
  cmake -S . -B "$tree" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-$arch.cmake >/dev/null
  cmake --build "$tree" >"$tree.log" 2>&1 || { tail -40 "$tree.log" >&2; exit 1; }
  dump=$("$arch-w64-mingw32-objdump" -p "$tree/src/registration/com/vmio.dll")
  exports=$(sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' <<<"$dump" | sed -n 's/^\s*\[ *[0-9]*\] //p' | sort)
  if [ "$exports" != "$expected_exports" ]; then
    echo "vmio.dll ($arch) exports: $exports" >&2
    exit 1
  fi
  # Nothing but system DLLs: the C++ run-time is linked in.
  if grep -i 'DLL Name: lib' <<<"$dump" >&2; then
    echo "vmio.dll ($arch) needs a DLL that Windows does not have" >&2
    exit 1
  fi
done
echo "ok vmio.dll exports, x86_64 and i686"

# Quiet, headless Wine in a prefix of its own. Debian's wine64 keeps its loader here.
export PATH=/usr/lib/wine:$PATH WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
unset DISPLAY WAYLAND_DISPLAY
WINEPREFIX=$(mktemp -d)
export WINEPREFIX
sim_pid=
cleanup() {
  [ -n "$sim_pid" ] && kill "$sim_pid" 2>/dev/null
  wineserver -k 2>/dev/null || true
  rm -rf "$WINEPREFIX"
}
trap cleanup EXIT
wine64 wineboot -i >/dev/null 2>&1

classes=(IODevice Axis Vivotek ACTi StarDot Genie AviosysPDU ADAM RS232 LogIT LogITEnum AxxessIDDoor AxxessIDSensor)
# The classes root as text, read once per check (one query per key would take a second each).
export_classes() {
  wine64 regedit /E 'C:\classes.reg' HKEY_CLASSES_ROOT
  iconv -f UTF-16LE -t UTF-8 "$WINEPREFIX/drive_c/classes.reg" | tr -d '\r' >"$WINEPREFIX/classes.txt"
}
has_key() { grep -qixF "[HKEY_CLASSES_ROOT\\$1]" "$WINEPREFIX/classes.txt"; }

# A simulator's terminal device reaches the component as a COM port: the prefix's
# dosdevices/comN link names the device, and Connect is given N. Other devices pass as they are.
wine_com_port() {
  case $1 in
  /dev/*) ln -sfn "$1" "$WINEPREFIX/dosdevices/com$wine_com" && echo "$wine_com" ;;
  *) echo "$1" ;;
  esac
}
export -f wine_com_port
export VMIO_DEVICE_MAP=wine_com_port wine_com=5

# One build of the component, registered by the matching regsvr32 and driven by the shell cases
# and the VBScript:  run_component ARCH FOLDER WINE SYSTEM-FOLDER
run_component() {
  local arch=$1 folder=$2 wine=$3 system=$4 tree=build/windows-$1
  local dir=$WINEPREFIX/drive_c/$folder
  mkdir -p "$dir"
  # The component as it ships: the sensor table beside vmio.dll.
  cp "$tree/src/registration/com/vmio.dll" "$tree/src/registration/com/LogIT Sensors.txt" \
    "$tree/tools/comshell/vmio-com-shell.exe" tests/windows/com_host.vbs "$dir/"
  "$wine" "$system\\regsvr32.exe" /s "C:\\$folder\\vmio.dll"
  # The door and sensor cases reach vmio-sim ax200 through a stand-in for the AX200 software;
  # before it is registered, its classes do not exist and the software counts as absent.
  scripts/shell-case.sh tests/shell/door_absent.txt "$sim" "$wine" "C:\\$folder\\vmio-com-shell.exe"
  cp "$tree/tests/windows/ax200_standin/ax200_standin.dll" "$dir/"
  "$wine" "$system\\regsvr32.exe" /s "C:\\$folder\\ax200_standin.dll"
  local begun took_ms
  for case in tests/shell/*.txt; do
    begun=$(date +%s%N)
    scripts/shell-case.sh "$case" "$sim" "$wine" "C:\\$folder\\vmio-com-shell.exe"
    # A device that never answers ends the call at its 5000 ms receive time-out; the margin is
    # for starting the simulator and the program.
    took_ms=$((($(date +%s%N) - begun) / 1000000))
    if [ "$(basename "$case")" = silent_device.txt ] && ((took_ms > 9000)); then
      echo "silent_device.txt ($arch): the call took $took_ms ms, more than 5000 ms and the margin" >&2
      exit 1
    fi
  done

  : >"$WINEPREFIX/axis.out"  # exists before the wait below reads it
  "$sim" axis --inputs 2 --outputs 2 --auth basic </dev/null >"$WINEPREFIX/axis.out" 2>&1 &
  sim_pid=$!
  local device= script_output
  for _ in $(seq 100); do
    device=$(sed -n 's/^device: //p' "$WINEPREFIX/axis.out")
    [ -n "$device" ] && break
    sleep 0.1
  done
  script_output=$("$wine" "$system\\cscript.exe" //nologo "C:\\$folder\\com_host.vbs" "$device" | tr -d '\r')
  kill "$sim_pid" 2>/dev/null
  sim_pid=
  if [ "$script_output" != "PASS com_host.vbs" ]; then
    echo "$script_output" >&2
    exit 1
  fi
  echo "ok cscript com_host.vbs ($arch)"
}

run_component x86_64 vmio wine64 'C:\windows\system32'
export_classes
keys=('TypeLib\{6B39711F-1795-447D-B63C-6A605A0418BB}' 'Interface\{9F67D865-904D-449B-8DF9-D90DD873F45E}')
for c in "${classes[@]}"; do
  clsid=$(grep -A1 -ixF "[HKEY_CLASSES_ROOT\\VMIO.$c\\CLSID]" "$WINEPREFIX/classes.txt" | grep -o '{[-0-9A-F]*}' || true)
  keys+=("VMIO.$c" "VMIO.$c.1" "CLSID\\$clsid" "CLSID\\$clsid\\InprocServer32")
done
for key in "${keys[@]}"; do
  has_key "$key" || { echo "not registered: $key" >&2; exit 1; }
done
echo "ok regsvr32: ${#classes[@]} classes and the type library"

# The seams that need no device (local addresses, HID, the module's folder), in a folder of
# their own with the sensor table beside the program and the probe DLL below it.
checks=$WINEPREFIX/drive_c/vmio-checks
mkdir -p "$checks/probe"
cp build/windows-x86_64/tests/windows/vmio-windows-checks.exe "build/windows-x86_64/tests/windows/LogIT Sensors.txt" \
  "$checks/"
cp build/windows-x86_64/tests/windows/probe/vmio-module-probe.dll "$checks/probe/"
checks_output=$(cd "$WINEPREFIX" && wine64 'C:\vmio-checks\vmio-windows-checks.exe' | tr -d '\r') || true
if ! grep -qx 'PASS vmio-windows-checks' <<<"$checks_output"; then
  echo "$checks_output" >&2
  exit 1
fi
echo "ok vmio-windows-checks"

wine64 regsvr32 /u /s 'C:\vmio\vmio.dll'
export_classes
left=()
for key in "${keys[@]}"; do
  has_key "$key" && left+=("$key")
done
if ((${#left[@]})); then
  echo "left behind by regsvr32 /u: ${left[*]}" >&2
  exit 1
fi
echo "ok regsvr32 /u removed every key"

# The 32-bit component, the one the product is: registered through the 32-bit regsvr32 of the
# same prefix and driven by the same cases. Skipped, saying why, only when 32-bit Wine cannot be
# installed at all.
if wine32_error=$(scripts/deps-wine32.sh 2>&1 >/dev/null); then
  # The prefix gains its 32-bit side at the next start. The server is started here with its
  # output discarded: under 32-bit programs it writes a dump of its objects to it.
  wineserver -k 2>/dev/null || true
  wineserver >/dev/null 2>&1
  run_component i686 vmio32 wine 'C:\windows\syswow64'
  wine 'C:\windows\syswow64\regsvr32.exe' /u /s 'C:\vmio32\vmio.dll'
  echo "ok win32 vmio.dll registered, driven and unregistered"
else
  echo "SKIP the 32-bit run: 32-bit Wine cannot be installed: $wine32_error"
fi
echo "windows tests: $(($(date +%s) - started)) s"
