// vmio-sim aviosys: a simulated Aviosys IP power unit (sockets, and inputs on the fixed model).
#include <sstream>
#include <string>
#include <vector>

#include "aviosys_sim.h"
#include "http_sim_args.h"

namespace vmio::sim::cli {
namespace {

constexpr HttpSimMake kMake{
    .name = "aviosys",
    .options_help =
        "usage: vmio-sim aviosys [options]\n"
        "  --sockets N               sockets of a unit that reports its count (default 4)\n"
        "  --fixed-model             the model with 8 inputs (P51-P58) and 8 sockets (P61-P68)\n"
        "  --no-html                 replies without the <html>...</html> wrapper\n"
        "  --extra-line              a second line after every reply\n"
        "  --power-num TEXT          answer GetPowerNum with TEXT (\"# Error\", a smaller count)\n"
        "  --name N=NAME             name of socket N (1-based); repeatable\n"
        "  --names-fail              GetPortName answers 404\n",
    .control_help =
        "  input N on|off            change input N (fixed model)\n"
        "  socket N on|off           switch socket N at the unit\n"
        "  show                      show every state\n",
};

bool ReadOption(AviosysSimOptions& options, const std::vector<std::string>& args, size_t& i) {
  const std::string& a = args[i];
  if (a == "--fixed-model") {
    options.fixed_model = true;
  } else if (a == "--no-html") {
    options.html = false;
  } else if (a == "--extra-line") {
    options.extra_line = true;
  } else if (a == "--names-fail") {
    options.names_fail = true;
  } else if (a == "--sockets") {
    options.sockets = ParseCount(TakeValue(args, i));
  } else if (a == "--power-num") {
    options.power_num_reply = TakeValue(args, i);
    return !options.power_num_reply.empty();
  } else if (a == "--name") {
    const std::string& v = TakeValue(args, i);
    const size_t eq = v.find('=');
    if (eq == std::string::npos) return false;
    const auto socket = static_cast<size_t>(ParseCount(v.substr(0, eq)));
    if (socket < 1) return false;
    if (options.names.size() < socket) options.names.resize(socket);
    options.names[socket - 1] = v.substr(eq + 1);
  } else {
    return false;
  }
  return true;
}

std::string Show(const AviosysSim& sim) {
  std::string line;
  for (int n = 1; n <= sim.Inputs(); ++n)
    line += "input" + std::to_string(n) + "=" + std::to_string(sim.Input(n)) + " ";
  for (int n = 1; n <= sim.Sockets(); ++n)
    line += "socket" + std::to_string(n) + "=" + std::to_string(sim.Socket(n)) + " ";
  if (!line.empty()) line.pop_back();
  return line;
}

std::string Control(AviosysSim& sim, const std::string& line) {
  std::istringstream in(line);
  std::string command, number, value;
  in >> command >> number >> value;
  if (command == "show") return Show(sim);
  const std::optional<bool> on = ParseOnOff(value);
  if ((command == "input" || command == "socket") && on) {
    try {
      if (command == "input") {
        sim.SetInput(ParseCount(number), *on ? 1 : 0);
      } else {
        sim.SetSocket(ParseCount(number), *on ? 1 : 0);
      }
      return Show(sim);
    } catch (const std::exception&) {
      return "error: no " + command + " " + number;
    }
  }
  return "error: unknown command '" + line + "' (input N on|off, socket N on|off, show)";
}

}  // namespace

int RunAviosys(const std::vector<std::string>& args) { return RunHttpSim(kMake, args, ReadOption, Control); }

}  // namespace vmio::sim::cli
