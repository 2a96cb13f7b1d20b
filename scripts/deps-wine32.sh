#!/usr/bin/env bash
# Installs 32-bit Wine (wine32:i386 beside wine64), for running the win32 vmio.dll. Does nothing
# when it is present. Exit status 0 when it is installed; otherwise the reason on stderr.
#
# The plain multiarch install is tried first. Where it fails (a package mirror whose i386
# security index does not download, amd64 libraries from another point release than the i386
# ones), the install is retried after aligning the two: the security entry is limited to amd64
# so the index update succeeds, and for this one install every Multi-Arch: same library of
# wine32's dependency tree that is installed for amd64 is pinned to the version that exists for
# i386 (the amd64 copy is upgraded or downgraded to it; both must be the same version).
set -euo pipefail
sudo_cmd=()
[ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
apt_install=(env DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends)

installed() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }
installed wine32:i386 && exit 0

added_i386=
if ! dpkg --print-foreign-architectures | grep -qx i386; then
  "${sudo_cmd[@]}" dpkg --add-architecture i386
  added_i386=1
fi
# Without a 32-bit package installed, a failed attempt leaves the machine as it was.
undo() {
  if [ -n "$added_i386" ] && ! installed wine32:i386; then
    "${sudo_cmd[@]}" dpkg --remove-architecture i386 2>/dev/null && "${sudo_cmd[@]}" apt-get update -qq 2>/dev/null || true
  fi
}
trap undo EXIT

log=$(mktemp)
if "${sudo_cmd[@]}" apt-get update -qq >"$log" 2>&1 && "${apt_install[@]}" wine32:i386 >>"$log" 2>&1; then
  echo "wine32: installed by the plain multiarch install"
  exit 0
fi
echo "wine32: the plain install failed ($(grep -m1 '^E:' "$log" || tail -1 "$log")); aligning amd64 and i386" >&2

# (1) The security archive for amd64 only, when its entry names no architectures yet.
sources=/etc/apt/sources.list.d/debian.sources
if [ -f "$sources" ] && ! grep -q '^Architectures:' "$sources"; then
  aligned=$(awk 'BEGIN { RS = ""; ORS = "\n\n" } /debian-security/ { $0 = $0 "\nArchitectures: amd64" } { print }' "$sources")
  printf '%s\n' "$aligned" | "${sudo_cmd[@]}" tee "$sources" >/dev/null
fi
if ! "${sudo_cmd[@]}" apt-get update -qq >"$log" 2>&1; then
  echo "wine32: apt-get update fails: $(grep -m1 '^E:' "$log" || tail -1 "$log")" >&2
  exit 1
fi

# (2) The pins, one per source package, to the i386 version.
prefs=$(mktemp)
installed_amd64=$(dpkg-query -W -f='${Package} ${Architecture} ${source:Package} ${db:Status-Status}\n' |
  awk '$2 == "amd64" && $4 == "installed" { print $1, $3 }')
declare -A pinned
while read -r package; do
  name=${package%:i386}
  source_name=$(awk -v n="$name" '$1 == n { print $2 }' <<<"$installed_amd64")
  [ -n "$source_name" ] && [ -z "${pinned[$source_name]:-}" ] || continue
  info=$(apt-cache show --no-all-versions "$package" 2>/dev/null) || continue
  grep -qx 'Multi-Arch: same' <<<"$info" || continue
  pinned[$source_name]=1
  printf 'Package: src:%s\nPin: version %s\nPin-Priority: 1001\n\n' "$source_name" \
    "$(sed -n 's/^Version: //p' <<<"$info")" >>"$prefs"
done < <(apt-cache depends --recurse --no-recommends --no-suggests --no-conflicts --no-breaks --no-replaces \
  --no-enhances wine32:i386 | grep -v '^ ' | grep ':i386$' | sort -u)

# (3) The install itself, never removing anything.
if ! "${apt_install[@]}" --no-remove --allow-downgrades -o Dir::Etc::Preferences="$prefs" wine32:i386 >"$log" 2>&1; then
  echo "wine32: the aligned install fails too: $(grep -m1 '^E:' "$log" || tail -1 "$log")" >&2
  exit 1
fi
echo "wine32: installed after aligning ${#pinned[@]} source packages with their i386 versions"
