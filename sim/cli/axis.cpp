// vmio-sim axis: a simulated Axis camera with digital inputs and outputs.
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "axis_sim.h"
#include "http_sim_args.h"

namespace vmio::sim::cli {
namespace {

constexpr HttpSimMake kMake{
    .name = "axis",
    .options_help =
        "usage: vmio-sim axis [options]\n"
        "  --inputs N                digital inputs (default 4)\n"
        "  --outputs N               digital outputs (default 2)\n"
        "  --ioport | --no-ioport    newer firmware with the IOPort group (default) or older without\n"
        "  --layout LETTERS          with --ioport: one 'i' or 'o' per port in order (replaces the counts)\n"
        "  --name-input N=NAME       name of input N (1-based); repeatable\n"
        "  --name-output N=NAME      name of output N (1-based); repeatable\n",
    .control_help =
        "  input N on|off            change input N\n"
        "  inputs | outputs          show the states\n",
    // The cameras challenge with Digest unless set otherwise.
    .default_auth = AuthScheme::Digest,
};

void AddName(std::map<int, std::string>& names, const std::string& option) {
  const size_t eq = option.find('=');
  if (eq == std::string::npos) throw BadArgument(option);
  names[ParseCount(option.substr(0, eq))] = option.substr(eq + 1);
}

bool ReadOption(AxisSimOptions& options, const std::vector<std::string>& args, size_t& i) {
  const std::string& a = args[i];
  if (a == "--ioport" || a == "--no-ioport") {
    options.ioport_group = a == "--ioport";
  } else if (a == "--inputs") {
    options.inputs = ParseCount(TakeValue(args, i));
  } else if (a == "--outputs") {
    options.outputs = ParseCount(TakeValue(args, i));
  } else if (a == "--layout") {
    options.port_layout = TakeValue(args, i);
    return options.port_layout.find_first_not_of("io") == std::string::npos;
  } else if (a == "--name-input") {
    AddName(options.input_names, TakeValue(args, i));
  } else if (a == "--name-output") {
    AddName(options.output_names, TakeValue(args, i));
  } else {
    return false;
  }
  return true;
}

std::string States(const AxisSim& sim, bool outputs) {
  std::string line = outputs ? "outputs:" : "inputs:";
  const int count = outputs ? sim.Outputs() : sim.Inputs();
  for (int n = 1; n <= count; ++n) {
    line += " " + std::to_string(n) + "=" + ((outputs ? sim.Output(n) : sim.Input(n)) ? "on" : "off");
  }
  return line;
}

std::string Control(AxisSim& sim, const std::string& line) {
  std::istringstream in(line);
  std::string command, number, state;
  in >> command >> number >> state;
  if (command == "inputs" || command == "outputs") return States(sim, command == "outputs");
  const std::optional<bool> on = ParseOnOff(state);
  if (command == "input" && on) {
    try {
      sim.SetInput(ParseCount(number), *on);
      return States(sim, false);
    } catch (const std::exception&) {
      return "error: no input " + number;
    }
  }
  return "error: unknown command '" + line + "' (input N on|off, inputs, outputs)";
}

}  // namespace

int RunAxis(const std::vector<std::string>& args) { return RunHttpSim(kMake, args, ReadOption, Control); }

}  // namespace vmio::sim::cli
