#pragma once
// `vmio-sim demo` (which `vmio demo` runs): every driver, through the library, against its
// simulated device, for newcomers and as a smoke test.
#include <ostream>
#include <span>
#include <vector>

#include "sim_makes.h"

namespace vmio::sim {

// The simulated make of every class that has one, in the order of the class table.
std::vector<SimMake> DemoTargets();

// For each target: starts its simulator, creates and connects the driver, lists and reads
// every port, switches the first Boolean output to the opposite state, checks it reads back,
// switches it back and disconnects. Prints a few lines per target and a summary; a failing
// target is reported and the rest still run. Returns the number of targets that failed.
int RunDemo(std::span<const SimMake> targets, std::ostream& out);

}  // namespace vmio::sim
