#pragma once
// `vmio demo`: the simulators live in vmio-sim, so the command runs `vmio-sim demo` and passes
// on what it prints and how it ends.
#include <ostream>

namespace vmio::cli {

// Runs `vmio-sim demo`, found as VMIO_SIM names it, else beside this program, else on PATH;
// copies its standard output to out. Returns its exit code; throws std::runtime_error when it
// cannot be started or does not exit normally.
int RunSimulatorDemo(std::ostream& out);

}  // namespace vmio::cli
