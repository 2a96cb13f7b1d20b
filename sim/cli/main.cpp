// vmio-sim: simulated devices for tests, demos and integrators without hardware.
#include <iomanip>
#include <iostream>
#include <string>
#include <vector>

#include "demo.h"
#include "sim_makes.h"
#include "vmio/version.h"

int main(int argc, char** argv) {
  using vmio::sim::SimMakes;
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty() || args[0] == "--help" || args[0] == "-h") {
    std::cout << "usage: vmio-sim MAKE [options]   (vmio-sim MAKE --help for the options)\n"
                 "       vmio-sim demo             (every driver against its simulated device)\n"
                 "       vmio-sim --version\n\nmakes:\n";
    for (const auto& m : SimMakes()) {
      if (!m.name.empty()) std::cout << "  " << std::left << std::setw(9) << m.name << m.help << "\n";
    }
    return args.empty() ? 2 : 0;
  }
  if (args[0] == "--version") {
    std::cout << "vmio-sim " << vmio::Version() << '\n';
    return 0;
  }
  if (args[0] == "demo") {
    if (args.size() > 1) {
      std::cerr << "vmio-sim demo: takes no arguments\n";
      return 2;
    }
    return vmio::sim::RunDemo(vmio::sim::DemoTargets(), std::cout) == 0 ? 0 : 1;
  }
  for (const auto& m : SimMakes()) {
    if (!m.name.empty() && m.name == args[0]) return m.run(std::vector<std::string>(args.begin() + 1, args.end()));
  }
  std::cerr << "vmio-sim: unknown make '" << args[0] << "' (see vmio-sim --help)\n";
  return 2;
}
