// vmio-sim acti: a simulated ACTi camera or video server with 1 to 4 channels of I/O.
#include <sstream>
#include <string>
#include <vector>

#include "acti_sim.h"
#include "http_sim_args.h"

namespace vmio::sim::cli {
namespace {

constexpr HttpSimMake kMake{
    .name = "acti",
    .options_help =
        "usage: vmio-sim acti [options]\n"
        "  --channels N              video channels, 1 to 4, each with 2 inputs and 2 outputs (default 1)\n"
        "  --firmware VERSION        the firmware version reported (its second character is read as\n"
        "                            the channel count; default A<N>D-310-V3.12.15-AC)\n"
        "  --refuse                  answer every command \"ERROR: ...\"\n",
    .control_help =
        "  input [C:]N on|off        change input N (1 or 2) of channel C (default 1)\n"
        "  output [C:]N on|off       switch output N of channel C at the device\n"
        "  refuse on|off             answer every command \"ERROR: ...\" or not\n"
        "  show                      show every state\n",
};

bool ReadOption(ACTiSimOptions& options, const std::vector<std::string>& args, size_t& i) {
  const std::string& a = args[i];
  if (a == "--refuse") {
    options.refuse = true;
  } else if (a == "--channels") {
    options.channels = ParseCount(TakeValue(args, i));
    if (options.channels < 1 || options.channels > 4) throw std::invalid_argument("--channels wants 1 to 4");
  } else if (a == "--firmware") {
    options.firmware = TakeValue(args, i);
  } else {
    return false;
  }
  return true;
}

std::string Show(const ACTiSim& sim) {
  std::string line;
  for (int c = 1; c <= sim.Channels(); ++c) {
    line += (c > 1 ? " | " : "") + std::string("channel ") + std::to_string(c) + ":";
    for (int n = 1; n <= 2; ++n) line += " in" + std::to_string(n) + "=" + (sim.Input(c, n) ? "on" : "off");
    for (int n = 1; n <= 2; ++n) line += " out" + std::to_string(n) + "=" + (sim.Output(c, n) ? "on" : "off");
  }
  return line;
}

std::string Control(ACTiSim& sim, const std::string& line) {
  std::istringstream in(line);
  std::string command, target, state;
  in >> command >> target >> state;
  if (command == "show") return Show(sim);
  if (command == "refuse" && ParseOnOff(target)) {
    sim.SetRefusing(*ParseOnOff(target));
    return "refusing " + target;
  }
  const std::optional<bool> on = ParseOnOff(state);
  if ((command == "input" || command == "output") && on) {
    try {
      const size_t colon = target.find(':');
      const int channel = colon == std::string::npos ? 1 : ParseCount(target.substr(0, colon));
      const int number = ParseCount(colon == std::string::npos ? target : target.substr(colon + 1));
      command == "input" ? sim.SetInput(channel, number, *on) : sim.SetOutput(channel, number, *on);
      return Show(sim);
    } catch (const std::exception&) {
      return "error: no " + command + " " + target;
    }
  }
  return "error: unknown command '" + line + "' (input [C:]N on|off, output [C:]N on|off, refuse on|off, show)";
}

}  // namespace

int RunACTi(const std::vector<std::string>& args) { return RunHttpSim(kMake, args, ReadOption, Control); }

}  // namespace vmio::sim::cli
