// vmio-sim: simulated devices for tests, demos and integrators without hardware.
#include <iostream>
#include <string>
#include <vector>

#include "sim_commands.h"

namespace vmio::sim::cli {

// One entry per make; each runner lives in its own file in this folder.
static const SimCommand kCommands[] = {
    {"none", "placeholder until the first simulator lands", [](const std::vector<std::string>&) { return 0; }},
};

std::span<const SimCommand> SimCommands() { return kCommands; }

}  // namespace vmio::sim::cli

int main(int argc, char** argv) {
  using vmio::sim::cli::SimCommands;
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty() || args[0] == "--help" || args[0] == "-h") {
    std::cout << "usage: vmio-sim MAKE [options]   (vmio-sim MAKE --help for the options)\n\nmakes:\n";
    for (const auto& c : SimCommands()) std::cout << "  " << c.name << "  " << c.help << "\n";
    return args.empty() ? 2 : 0;
  }
  for (const auto& c : SimCommands()) {
    if (c.name == args[0]) return c.run(std::vector<std::string>(args.begin() + 1, args.end()));
  }
  std::cerr << "vmio-sim: unknown make '" << args[0] << "' (see vmio-sim --help)\n";
  return 2;
}
