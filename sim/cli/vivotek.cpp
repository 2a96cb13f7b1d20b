// vmio-sim vivotek: a simulated Vivotek camera with digital inputs and outputs.
#include <sstream>
#include <string>
#include <vector>

#include "http_sim_args.h"
#include "vivotek_sim.h"

namespace vmio::sim::cli {
namespace {

constexpr HttpSimMake kMake{
    .name = "vivotek",
    .options_help =
        "usage: vmio-sim vivotek [options]\n"
        "  --inputs N                digital inputs (default 2)\n"
        "  --outputs N               digital outputs (default 1)\n"
        "  --bare                    capability values without quotes (older firmware)\n"
        "  --lf                      end reply rows with LF instead of CR LF\n",
    .control_help =
        "  input N on|off            change input N (1-based: input 1 is di0)\n"
        "  output N on|off           switch output N at the device\n"
        "  show                      show every state\n",
};

bool ReadOption(VivotekSimOptions& options, const std::vector<std::string>& args, size_t& i) {
  const std::string& a = args[i];
  if (a == "--bare") {
    options.quoted_values = false;
  } else if (a == "--lf") {
    options.line_end = "\n";
  } else if (a == "--inputs") {
    options.inputs = ParseCount(TakeValue(args, i));
  } else if (a == "--outputs") {
    options.outputs = ParseCount(TakeValue(args, i));
  } else {
    return false;
  }
  return true;
}

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
      const int n = ParseCount(number);
      command == "input" ? sim.SetInput(n, *on) : sim.SetOutput(n, *on);
      return Show(sim);
    } catch (const std::exception&) {
      return "error: no " + command + " " + number;
    }
  }
  return "error: unknown command '" + line + "' (input N on|off, output N on|off, show)";
}

}  // namespace

int RunVivotek(const std::vector<std::string>& args) { return RunHttpSim(kMake, args, ReadOption, Control); }

}  // namespace vmio::sim::cli
