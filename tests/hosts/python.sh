#!/usr/bin/env bash
# The Python package as a user gets it: a wheel built from python/, installed with the library
# into one prefix, found there with no VMIO_LIBRARY, type-checked, and its tests run against it.
# usage: python.sh BUILD_DIR
set -euo pipefail
build=$(cd "$1" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=SCRIPTDIR/prefix.sh
source "$here/prefix.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
unset VMIO_LIBRARY VMIO_SIM VMIO_TOOL LD_LIBRARY_PATH PYTHONPATH
export PYTHONDONTWRITEBYTECODE=1

make_prefix "$build" "$work/env"

# The wheel carries the typing marker and the licence.
"$python" - "$wheel" <<'PY'
import sys, zipfile
names = set(zipfile.ZipFile(sys.argv[1]).namelist())
for wanted in ("vmio/__init__.py", "vmio/py.typed", "vmio-0.1.0.dist-info/LICENSE"):
    assert wanted in names, "%s is not in the wheel: %s" % (wanted, sorted(names))
PY

# The installed package, not the tree's, loading the library installed beside it.
cd "$work"
loaded=$("$python" -c 'import vmio, vmio._native as n; print(vmio.__file__, n.lib._name)')
[[ $loaded == "$work/env/lib/"*"/site-packages/vmio/__init__.py $work/env/lib/libvmio.so.0" ]] || {
  echo "unexpected package or library: $loaded" >&2
  exit 1
}

# Every public name typed: what a host's type checker sees, in the package and in a host.
"$python" -m mypy --strict --cache-dir /dev/null -p vmio
"$python" -m mypy --strict --cache-dir /dev/null "$here/../../examples/list_ports.py" "$here/../../examples/watch_fleet.py"

# The simulators and the vmio command are the installed ones too, found on PATH.
PATH=$work/env/bin:$PATH "$python" -m pytest -q -p no:cacheprovider "$here/../../python/tests"
