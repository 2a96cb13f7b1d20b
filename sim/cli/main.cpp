// vmio-sim: simulated devices for tests, demos and integrators without hardware.
#include <iomanip>
#include <iostream>
#include <string>
#include <vector>

#include "sim_commands.h"

namespace vmio::sim::cli {

int RunAxis(const std::vector<std::string>& args);     // axis.cpp
int RunSerial(const std::vector<std::string>& args);   // serial.cpp
int RunGenie(const std::vector<std::string>& args);    // genie.cpp
int RunAviosys(const std::vector<std::string>& args);  // aviosys.cpp
int RunVivotek(const std::vector<std::string>& args);  // vivotek.cpp
int RunACTi(const std::vector<std::string>& args);     // acti.cpp
int RunStarDot(const std::vector<std::string>& args);  // stardot.cpp
int RunAdam(const std::vector<std::string>& args);     // adam.cpp
int RunAx200(const std::vector<std::string>& args);    // ax200.cpp

// One entry per make; each runner lives in its own file in this folder.
static const SimCommand kCommands[] = {
    {"axis", "an Axis camera with digital inputs and outputs (CGI over HTTP)", &RunAxis},
    {"serial", "an instrument answering text commands on a pseudo-terminal", &RunSerial},
    {"genie", "a Genie device: two sensors, two alarm outputs and a buzzer (/httpapi/ over HTTP)", &RunGenie},
    {"aviosys", "an Aviosys IP power unit: switched sockets, inputs on the fixed model (Set.cmd over HTTP)",
     &RunAviosys},
    {"vivotek", "a Vivotek camera with digital inputs and outputs (CGI over HTTP)", &RunVivotek},
    {"acti", "an ACTi camera or video server, 1 to 4 channels of 2 inputs and 2 outputs (CGI over HTTP)", &RunACTi},
    {"stardot", "a StarDot camera with a relay and external inputs (CGI over HTTP)", &RunStarDot},
    {"adam", "an ADAM-6000 Ethernet I/O module: inputs and relays over Modbus/TCP, model query over UDP", &RunAdam},
    {"ax200", "an AX200 access-control service with doors and environment sensors (lines on a local socket)",
     &RunAx200},
};

std::span<const SimCommand> SimCommands() { return kCommands; }

}  // namespace vmio::sim::cli

int main(int argc, char** argv) {
  using vmio::sim::cli::SimCommands;
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty() || args[0] == "--help" || args[0] == "-h") {
    std::cout << "usage: vmio-sim MAKE [options]   (vmio-sim MAKE --help for the options)\n\nmakes:\n";
    for (const auto& c : SimCommands()) std::cout << "  " << std::left << std::setw(9) << c.name << c.help << "\n";
    return args.empty() ? 2 : 0;
  }
  for (const auto& c : SimCommands()) {
    if (c.name == args[0]) return c.run(std::vector<std::string>(args.begin() + 1, args.end()));
  }
  std::cerr << "vmio-sim: unknown make '" << args[0] << "' (see vmio-sim --help)\n";
  return 2;
}
