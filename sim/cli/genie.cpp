// vmio-sim genie: a simulated Genie device with two sensors, two alarm outputs and a buzzer.
#include <sstream>
#include <string>
#include <vector>

#include "genie_sim.h"
#include "http_sim_args.h"

namespace vmio::sim::cli {
namespace {

constexpr HttpSimMake kMake{
    .name = "genie",
    .options_help =
        "usage: vmio-sim genie [options]\n"
        "  --crlf                    end reply lines with CR LF instead of LF\n",
    .control_help =
        "  input N on|off            change sensor N (1 or 2)\n"
        "  state KEY N               set a state to the number the device reports (GIS_ALARM1 2)\n"
        "  show                      show every state\n",
};

constexpr const char* kKeys[] = {"GIS_SENSOR1", "GIS_SENSOR2", "GIS_ALARM1", "GIS_ALARM2", "GIS_BUZZER"};

bool ReadOption(GenieSimOptions& options, const std::vector<std::string>& args, size_t& i) {
  if (args[i] != "--crlf") return false;
  options.line_end = "\r\n";
  return true;
}

std::string Show(const GenieSim& sim) {
  std::string line;
  for (const char* key : kKeys)
    line += (line.empty() ? "" : " ") + std::string(key) + "=" + std::to_string(sim.State(key));
  return line;
}

std::string Control(GenieSim& sim, const std::string& line) {
  std::istringstream in(line);
  std::string command, target, value;
  in >> command >> target >> value;
  if (command == "show") return Show(sim);
  const std::optional<bool> on = ParseOnOff(value);
  if (command == "input" && (target == "1" || target == "2") && on) {
    sim.SetState("GIS_SENSOR" + target, *on ? 1 : 0);
    return Show(sim);
  }
  if (command == "state" && !value.empty() && value.find_first_not_of("0123456789") == std::string::npos) {
    try {
      sim.SetState(target, ParseCount(value));
      return Show(sim);
    } catch (const std::exception&) {
      return "error: no state " + target + " " + value;
    }
  }
  return "error: unknown command '" + line + "' (input N on|off, state KEY N, show)";
}

}  // namespace

int RunGenie(const std::vector<std::string>& args) { return RunHttpSim(kMake, args, ReadOption, Control); }

}  // namespace vmio::sim::cli
