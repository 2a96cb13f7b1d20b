#pragma once
// What every `vmio-sim MAKE` run shares: announce the device, then serve until stopped.
#include <functional>
#include <string>

namespace vmio::sim::cli {

// Prints "device: DEVICE" (what to give Connect), then serves until SIGINT or SIGTERM.
// Meanwhile each line read from standard input goes to control (to change input states
// while running); control answers with a line to print, or "" for none. The end of standard
// input does not stop the simulator.
int ServeUntilStopped(const std::string& device, const std::function<std::string(const std::string& line)>& control);

}  // namespace vmio::sim::cli
