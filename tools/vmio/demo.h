#pragma once
// `vmio demo`: every driver against its simulated device, for newcomers and as a smoke test.
#include <ostream>
#include <span>
#include <vector>

#include "demo_targets.h"

namespace vmio::cli {

// For each target: starts its simulator, creates and connects the driver, lists and reads
// every port, switches the first Boolean output to the opposite state, checks it reads back,
// switches it back and disconnects. Prints a few lines per target and a summary; a failing
// target is reported and the rest still run. Returns the number of targets that failed.
int RunDemo(std::span<const DemoTarget> targets, std::ostream& out);

}  // namespace vmio::cli
