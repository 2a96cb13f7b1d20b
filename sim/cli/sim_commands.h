#pragma once
// The makes `vmio-sim` can play: one entry per simulator, each in its own file here.
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vmio::sim::cli {

struct SimCommand {
  std::string_view name;  // "axis"
  std::string_view help;  // one line for `vmio-sim --help`
  // Runs the simulator with the arguments after the name; returns the exit code.
  int (*run)(const std::vector<std::string>& args);
};

std::span<const SimCommand> SimCommands();

}  // namespace vmio::sim::cli
