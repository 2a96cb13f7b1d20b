#!/usr/bin/env bash
# Builds vmio and vmio-sim and runs the demo: every driver against its simulated device.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/release -j "$(nproc)" --target vmio_tool vmio-sim
VMIO_SIM=build/release/sim/vmio-sim exec build/release/tools/vmio/vmio demo
