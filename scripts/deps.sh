#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need; does nothing when they are present.
# With arguments, installs those packages instead (scripts/test-windows.sh gives its own list).
set -euo pipefail
pkgs=(g++ cmake ninja-build pkg-config libcurl4-openssl-dev libssl-dev libc-ares-dev libcpp-httplib-dev
      libmodbus-dev libgtest-dev libgmock-dev libbenchmark-dev clang-format python3-pytest
      python3-venv python3-pip python3-setuptools python3-wheel python3-mypy  # the Python package
      doxygen                                                                 # the API reference
      clang libclang-rt-14-dev  # clang and its runtime: the libFuzzer targets
      dpkg-dev file)  # the .deb packages: cpack finds the programs with file, their dependencies with dpkg-shlibdeps
if (($#)); then pkgs=("$@"); fi
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "installing: ${missing[*]}"
  sudo_cmd=()
  [ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
