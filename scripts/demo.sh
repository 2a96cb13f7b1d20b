#!/usr/bin/env bash
# Builds the vmio tool and runs its demo against the built-in simulated devices.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/release -j "$(nproc)" --target vmio_tool
exec build/release/tools/vmio/vmio demo
