// vmio-sim stardot: a simulated StarDot camera with a relay and external inputs.
#include <sstream>
#include <string>
#include <vector>

#include "http_sim_args.h"
#include "stardot_sim.h"

namespace vmio::sim::cli {
namespace {

constexpr HttpSimMake kMake{
    .name = "stardot",
    .options_help =
        "usage: vmio-sim stardot [options]\n"
        "  --inputs N                external inputs (default 1)\n"
        "  --no-relay                a camera without a relay\n",
    .control_help =
        "  input N on|off            change external input N (1-based; /io.cgi reports input 1)\n"
        "  relay on|off              switch the relay at the camera\n"
        "  show                      show every state\n",
};

bool ReadOption(StarDotSimOptions& options, const std::vector<std::string>& args, size_t& i) {
  const std::string& a = args[i];
  if (a == "--no-relay") {
    options.relay = false;
  } else if (a == "--inputs") {
    options.inputs = ParseCount(TakeValue(args, i));
  } else {
    return false;
  }
  return true;
}

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
      sim.SetInput(ParseCount(first), *ParseOnOff(second));
      return Show(sim);
    } catch (const std::exception&) {
      return "error: no input " + first;
    }
  }
  return "error: unknown command '" + line + "' (input N on|off, relay on|off, show)";
}

}  // namespace

int RunStarDot(const std::vector<std::string>& args) { return RunHttpSim(kMake, args, ReadOption, Control); }

}  // namespace vmio::sim::cli
