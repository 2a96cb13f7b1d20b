// vmio-sim stardot: a simulated StarDot camera with a relay and external inputs.
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "http_sim_args.h"
#include "serve.h"
#include "stardot_sim.h"

namespace vmio::sim::cli {
namespace {

constexpr char kUsage[] =
    "usage: vmio-sim stardot [options]\n"
    "  --inputs N                external inputs (default 1)\n"
    "  --no-relay                a camera without a relay\n";
constexpr char kControlHelp[] =
    "\n"
    "Prints \"device: DEVICE\" and serves until interrupted. Lines on standard input:\n"
    "  input N on|off            change external input N (1-based; /io.cgi reports input 1)\n"
    "  relay on|off              switch the relay at the camera\n"
    "  show                      show every state\n";

std::string Show(const StarDotSim& sim) {
  std::string line = sim.HasRelay() ? std::string("relay=") + (sim.Relay() ? "on" : "off") : "no relay";
  line += " inputs:";
  for (int n = 1; n <= sim.Inputs(); ++n) line += " " + std::to_string(n) + "=" + (sim.Input(n) ? "on" : "off");
  return line;
}

std::string Control(StarDotSim& sim, const std::string& line) {
  std::istringstream in(line);
  std::string command, first, second;
  in >> command >> first >> second;
  if (command == "show") return Show(sim);
  if (command == "relay" && ParseOnOff(first)) {
    sim.SetRelay(*ParseOnOff(first));
    return Show(sim);
  }
  if (command == "input" && ParseOnOff(second)) {
    try {
      sim.SetInput(std::stoi(first), *ParseOnOff(second));
      return Show(sim);
    } catch (const std::exception&) {
      return "error: no input " + first;
    }
  }
  return "error: unknown command '" + line + "' (input N on|off, relay on|off, show)";
}

}  // namespace

int RunStarDot(const std::vector<std::string>& args) {
  std::string error;
  const std::optional<HttpSimArgs> common = ParseHttpSimArgs(args, error);
  StarDotSimOptions options;
  try {
    if (!common) throw std::invalid_argument(error);
    options.auth = common->auth;
    const std::vector<std::string>& rest = common->rest;
    for (size_t i = 0; i < rest.size(); ++i) {
      const std::string& a = rest[i];
      if (a == "--help" || a == "-h") {
        std::cout << kUsage << kHttpSimOptionsHelp << kControlHelp;
        return 0;
      } else if (a == "--no-relay") {
        options.relay = false;
      } else if (a == "--inputs" && i + 1 < rest.size()) {
        options.inputs = std::stoi(rest[++i]);
        if (options.inputs < 0) throw std::invalid_argument(rest[i]);
      } else {
        throw std::invalid_argument("bad argument '" + a + "'");
      }
    }
  } catch (const std::exception& e) {
    std::cerr << "vmio-sim stardot: " << e.what() << "\n" << kUsage << kHttpSimOptionsHelp;
    return 2;
  }
  StarDotSim sim(options);
  try {
    sim.Start(common->host, common->port);
  } catch (const std::exception& e) {
    std::cerr << "vmio-sim stardot: " << e.what() << "\n";
    return 1;
  }
  return ServeUntilStopped(sim.DeviceString(), [&sim](const std::string& line) { return Control(sim, line); });
}

}  // namespace vmio::sim::cli
