// vmio-sim aviosys: a simulated Aviosys IP power unit (sockets, and inputs on the fixed model).
#include <charconv>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "aviosys_sim.h"
#include "http_sim_args.h"
#include "serve.h"

namespace vmio::sim::cli {
namespace {

constexpr char kUsage[] =
    "usage: vmio-sim aviosys [options]\n"
    "  --sockets N               sockets of a unit that reports its count (default 4)\n"
    "  --fixed-model             the model with 8 inputs (P51-P58) and 8 sockets (P61-P68)\n"
    "  --no-html                 replies without the <html>...</html> wrapper\n"
    "  --extra-line              a second line after every reply\n"
    "  --power-num TEXT          answer GetPowerNum with TEXT (\"# Error\", a smaller count)\n"
    "  --name N=NAME             name of socket N (1-based); repeatable\n"
    "  --names-fail              GetPortName answers 404\n";
constexpr char kControlHelp[] =
    "\n"
    "Prints \"device: DEVICE\" and serves until interrupted. Lines on standard input:\n"
    "  input N on|off            change input N (fixed model)\n"
    "  socket N on|off           switch socket N at the unit\n"
    "  show                      show every state\n";

int Number(const std::string& text) {
  int n = -1;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), n);
  return ec == std::errc() && end == text.data() + text.size() && n >= 0 ? n : -1;
}

std::string Show(const AviosysSim& sim) {
  std::string line;
  for (int n = 1; n <= sim.Inputs(); ++n) line += "input" + std::to_string(n) + "=" + std::to_string(sim.Input(n)) + " ";
  for (int n = 1; n <= sim.Sockets(); ++n) line += "socket" + std::to_string(n) + "=" + std::to_string(sim.Socket(n)) + " ";
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
        sim.SetInput(Number(number), *on ? 1 : 0);
      } else {
        sim.SetSocket(Number(number), *on ? 1 : 0);
      }
      return Show(sim);
    } catch (const std::exception&) {
      return "error: no " + command + " " + number;
    }
  }
  return "error: unknown command '" + line + "' (input N on|off, socket N on|off, show)";
}

// Applies one of the make's own options (moving i past its value); false when it is not one.
bool Apply(AviosysSimOptions& options, const std::vector<std::string>& rest, size_t& i) {
  const std::string& a = rest[i];
  if (a == "--fixed-model") {
    options.fixed_model = true;
  } else if (a == "--no-html") {
    options.html = false;
  } else if (a == "--extra-line") {
    options.extra_line = true;
  } else if (a == "--names-fail") {
    options.names_fail = true;
  } else if (i + 1 >= rest.size()) {
    return false;
  } else if (a == "--sockets") {
    options.sockets = Number(rest[++i]);
    return options.sockets >= 0;
  } else if (a == "--power-num") {
    options.power_num_reply = rest[++i];
    return !options.power_num_reply.empty();
  } else if (a == "--name") {
    const std::string& v = rest[++i];
    const size_t eq = v.find('=');
    const int socket = eq == std::string::npos ? -1 : Number(v.substr(0, eq));
    if (socket < 1) return false;
    if (options.names.size() < static_cast<size_t>(socket)) options.names.resize(static_cast<size_t>(socket));
    options.names[static_cast<size_t>(socket - 1)] = v.substr(eq + 1);
  } else {
    return false;
  }
  return true;
}

}  // namespace

int RunAviosys(const std::vector<std::string>& args) {
  std::string error;
  const std::optional<HttpSimArgs> common = ParseHttpSimArgs(args, error);
  if (!common) {
    std::cerr << "vmio-sim aviosys: " << error << "\n" << kUsage << kHttpSimOptionsHelp;
    return 2;
  }
  AviosysSimOptions options;
  options.auth = common->auth;
  for (size_t i = 0; i < common->rest.size(); ++i) {
    if (common->rest[i] == "--help" || common->rest[i] == "-h") {
      std::cout << kUsage << kHttpSimOptionsHelp << kControlHelp;
      return 0;
    }
    if (!Apply(options, common->rest, i)) {
      std::cerr << "vmio-sim aviosys: bad argument '" << common->rest[i] << "'\n" << kUsage << kHttpSimOptionsHelp;
      return 2;
    }
  }
  AviosysSim sim(options);
  try {
    sim.Start(common->host, common->port);
  } catch (const std::exception& e) {
    std::cerr << "vmio-sim aviosys: " << e.what() << "\n";
    return 1;
  }
  return ServeUntilStopped(sim.DeviceString(), [&sim](const std::string& line) { return Control(sim, line); });
}

}  // namespace vmio::sim::cli
