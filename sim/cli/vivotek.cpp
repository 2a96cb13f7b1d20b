// vmio-sim vivotek: a simulated Vivotek camera with digital inputs and outputs.
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "http_sim_args.h"
#include "serve.h"
#include "vivotek_sim.h"

namespace vmio::sim::cli {
namespace {

constexpr char kUsage[] =
    "usage: vmio-sim vivotek [options]\n"
    "  --inputs N                digital inputs (default 2)\n"
    "  --outputs N               digital outputs (default 1)\n"
    "  --bare                    capability values without quotes (older firmware)\n"
    "  --lf                      end reply rows with LF instead of CR LF\n";
constexpr char kControlHelp[] =
    "\n"
    "Prints \"device: DEVICE\" and serves until interrupted. Lines on standard input:\n"
    "  input N on|off            change input N (1-based: input 1 is di0)\n"
    "  output N on|off           switch output N at the device\n"
    "  show                      show every state\n";

std::string Show(const VivotekSim& sim) {
  std::string line = "inputs:";
  for (int n = 1; n <= sim.Inputs(); ++n) line += " " + std::to_string(n) + "=" + (sim.Input(n) ? "on" : "off");
  line += " outputs:";
  for (int n = 1; n <= sim.Outputs(); ++n) line += " " + std::to_string(n) + "=" + (sim.Output(n) ? "on" : "off");
  return line;
}

std::string Control(VivotekSim& sim, const std::string& line) {
  std::istringstream in(line);
  std::string command, number, state;
  in >> command >> number >> state;
  if (command == "show") return Show(sim);
  const std::optional<bool> on = ParseOnOff(state);
  if ((command == "input" || command == "output") && on) {
    try {
      const int n = std::stoi(number);
      command == "input" ? sim.SetInput(n, *on) : sim.SetOutput(n, *on);
      return Show(sim);
    } catch (const std::exception&) {
      return "error: no " + command + " " + number;
    }
  }
  return "error: unknown command '" + line + "' (input N on|off, output N on|off, show)";
}

}  // namespace

int RunVivotek(const std::vector<std::string>& args) {
  std::string error;
  const std::optional<HttpSimArgs> common = ParseHttpSimArgs(args, error);
  VivotekSimOptions options;
  try {
    if (!common) throw std::invalid_argument(error);
    options.auth = common->auth;
    const std::vector<std::string>& rest = common->rest;
    for (size_t i = 0; i < rest.size(); ++i) {
      const std::string& a = rest[i];
      if (a == "--help" || a == "-h") {
        std::cout << kUsage << kHttpSimOptionsHelp << kControlHelp;
        return 0;
      } else if (a == "--bare") {
        options.quoted_values = false;
      } else if (a == "--lf") {
        options.line_end = "\n";
      } else if ((a == "--inputs" || a == "--outputs") && i + 1 < rest.size()) {
        const int n = std::stoi(rest[++i]);
        if (n < 0) throw std::invalid_argument(rest[i]);
        (a == "--inputs" ? options.inputs : options.outputs) = n;
      } else {
        throw std::invalid_argument("bad argument '" + a + "'");
      }
    }
  } catch (const std::exception& e) {
    std::cerr << "vmio-sim vivotek: " << e.what() << "\n" << kUsage << kHttpSimOptionsHelp;
    return 2;
  }
  VivotekSim sim(options);
  try {
    sim.Start(common->host, common->port);
  } catch (const std::exception& e) {
    std::cerr << "vmio-sim vivotek: " << e.what() << "\n";
    return 1;
  }
  return ServeUntilStopped(sim.DeviceString(), [&sim](const std::string& line) { return Control(sim, line); });
}

}  // namespace vmio::sim::cli
