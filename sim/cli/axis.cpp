// vmio-sim axis: a simulated Axis camera with digital inputs and outputs.
#include <charconv>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "axis_sim.h"
#include "serve.h"

namespace vmio::sim::cli {
namespace {

constexpr char kUsage[] =
    "usage: vmio-sim axis [options]\n"
    "  --listen HOST:PORT        address to serve on (default 127.0.0.1:0, an ephemeral port)\n"
    "  --inputs N                digital inputs (default 4)\n"
    "  --outputs N               digital outputs (default 2)\n"
    "  --ioport | --no-ioport    newer firmware with the IOPort group (default) or older without\n"
    "  --layout LETTERS          with --ioport: one 'i' or 'o' per port in order (replaces the counts)\n"
    "  --name-input N=NAME       name of input N (1-based); repeatable\n"
    "  --name-output N=NAME      name of output N (1-based); repeatable\n"
    "  --user U --password P     require these credentials\n"
    "  --auth basic|digest       how credentials are checked (default digest)\n"
    "\n"
    "Prints \"device: DEVICE\" and serves until interrupted. Lines on standard input:\n"
    "  input N on|off            change input N\n"
    "  inputs | outputs          show the states\n";

int Count(const std::string& text) {
  int n = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), n);
  if (ec != std::errc() || end != text.data() + text.size() || n < 0) throw std::invalid_argument(text);
  return n;
}

void AddName(std::map<int, std::string>& names, const std::string& option) {
  const size_t eq = option.find('=');
  if (eq == std::string::npos) throw std::invalid_argument(option);
  names[Count(option.substr(0, eq))] = option.substr(eq + 1);
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
  if (command == "input" && (state == "on" || state == "off")) {
    try {
      sim.SetInput(Count(number), state == "on");
      return States(sim, false);
    } catch (const std::exception&) {
      return "error: no input " + number;
    }
  }
  return "error: unknown command '" + line + "' (input N on|off, inputs, outputs)";
}

}  // namespace

int RunAxis(const std::vector<std::string>& args) {
  AxisSimOptions options;
  std::string host = "127.0.0.1";
  int port = 0;
  std::string scheme = "digest";
  try {
    for (size_t i = 0; i < args.size(); ++i) {
      const std::string& a = args[i];
      if (a == "--help" || a == "-h") {
        std::cout << kUsage;
        return 0;
      }
      if (a == "--ioport" || a == "--no-ioport") {
        options.ioport_group = a == "--ioport";
        continue;
      }
      if (i + 1 >= args.size()) throw std::invalid_argument(a);
      const std::string& v = args[++i];
      if (a == "--listen") {
        const size_t colon = v.rfind(':');
        if (colon == std::string::npos) throw std::invalid_argument(v);
        host = v.substr(0, colon);
        port = Count(v.substr(colon + 1));
      } else if (a == "--inputs") {
        options.inputs = Count(v);
      } else if (a == "--outputs") {
        options.outputs = Count(v);
      } else if (a == "--layout") {
        if (v.find_first_not_of("io") != std::string::npos) throw std::invalid_argument(v);
        options.port_layout = v;
      } else if (a == "--name-input") {
        AddName(options.input_names, v);
      } else if (a == "--name-output") {
        AddName(options.output_names, v);
      } else if (a == "--user") {
        options.auth.user = v;
      } else if (a == "--password") {
        options.auth.password = v;
      } else if (a == "--auth") {
        if (v != "basic" && v != "digest") throw std::invalid_argument(v);
        scheme = v;
      } else {
        throw std::invalid_argument(a);
      }
    }
  } catch (const std::exception& e) {
    std::cerr << "vmio-sim axis: bad argument '" << e.what() << "'\n" << kUsage;
    return 2;
  }
  if (!options.auth.user.empty() || !options.auth.password.empty()) {
    options.auth.scheme = scheme == "basic" ? AuthScheme::Basic : AuthScheme::Digest;
  }
  AxisSim sim(options);
  try {
    sim.Start(host, port);
  } catch (const std::exception& e) {
    std::cerr << "vmio-sim axis: " << e.what() << "\n";
    return 1;
  }
  return ServeUntilStopped(sim.DeviceString(), [&sim](const std::string& line) { return Control(sim, line); });
}

}  // namespace vmio::sim::cli
