// vmio-sim: simulated devices for tests, demos and integrators without hardware.
#include <iomanip>
#include <iostream>
#include <string>
#include <vector>

#include "sim_makes.h"

int main(int argc, char** argv) {
  using vmio::sim::SimMakes;
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty() || args[0] == "--help" || args[0] == "-h") {
    std::cout << "usage: vmio-sim MAKE [options]   (vmio-sim MAKE --help for the options)\n\nmakes:\n";
    for (const auto& m : SimMakes()) {
      if (!m.name.empty()) std::cout << "  " << std::left << std::setw(9) << m.name << m.help << "\n";
    }
    return args.empty() ? 2 : 0;
  }
  for (const auto& m : SimMakes()) {
    if (!m.name.empty() && m.name == args[0]) return m.run(std::vector<std::string>(args.begin() + 1, args.end()));
  }
  std::cerr << "vmio-sim: unknown make '" << args[0] << "' (see vmio-sim --help)\n";
  return 2;
}
