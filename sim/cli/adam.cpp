// vmio-sim adam: a simulated ADAM-6000 Ethernet I/O module (Modbus/TCP and its UDP model query).
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "adam_sim.h"
#include "serve.h"

namespace vmio::sim::cli {
namespace {

constexpr char kUsage[] =
    "usage: vmio-sim adam [options]\n"
    "  --listen HOST:PORT        Modbus/TCP address (default 127.0.0.1:0, an ephemeral port)\n"
    "  --model MODEL             model number the module reports (default 6050); 6015 6017 6018\n"
    "                            6024 6050 6051 6052 6060 6066 have points, others none\n"
    "  --udp-port N              port of the model query on HOST (default 1025, where the driver\n"
    "                            asks; an ephemeral port when 1025 is taken)\n"
    "  --udp answer|silent|no-cr how the model query is answered (default answer)\n"
    "  --exception F=CODE        answer Modbus function F with exception CODE; repeatable\n"
    "\n"
    "Prints \"device: DEVICE\" and serves until interrupted. Lines on standard input:\n"
    "  input N on|off            change digital input N (from 0)\n"
    "  inputs | relays           show the states\n"
    "  udp answer|silent|no-cr   change how the model query is answered\n"
    "  exception F CODE          answer function F with exception CODE (0: normally)\n";

AdamUdpMode UdpMode(const std::string& word) {
  if (word == "answer") return AdamUdpMode::Answer;
  if (word == "silent") return AdamUdpMode::Silent;
  if (word == "no-cr") return AdamUdpMode::NoCarriageReturn;
  throw BadArgument(word);
}

std::string States(const AdamSim& sim, bool relays) {
  std::string line = relays ? "relays:" : "inputs:";
  const int count = relays ? sim.DigitalOutputs() : sim.DigitalInputs();
  for (int n = 0; n < count; ++n) {
    line += " " + std::to_string(n) + "=" + ((relays ? sim.Relay(n) : sim.Input(n)) ? "on" : "off");
  }
  return line;
}

std::string Control(AdamSim& sim, const std::string& line) {
  std::istringstream in(line);
  std::string command, first, second;
  in >> command >> first >> second;
  try {
    if (command == "inputs" || command == "relays") return States(sim, command == "relays");
    if (command == "input") {
      const std::optional<bool> on = ParseOnOff(second);
      if (!on) throw BadArgument(second);
      sim.SetInput(ParseCount(first), *on);
      return States(sim, false);
    }
    if (command == "udp") {
      sim.SetUdpMode(UdpMode(first));
      return "ok";
    }
    if (command == "exception") {
      sim.SetException(ParseCount(first), ParseCount(second));
      return "ok";
    }
  } catch (const std::exception& e) {
    return "error: " + std::string(e.what());
  }
  return "error: unknown command '" + line + "' (input N on|off, inputs, relays, udp MODE, exception F CODE)";
}

}  // namespace

int RunAdam(const std::vector<std::string>& args) {
  AdamSimOptions options;
  options.udp_port = 1025;
  bool udp_port_given = false;
  std::vector<std::pair<int, int>> exceptions;
  const auto read_option = [&](const std::vector<std::string>& a, size_t& i) {
    const std::string& option = a[i];
    if (option == "--listen") {
      ParseListen(TakeValue(a, i), options.host, options.modbus_port);
    } else if (option == "--model") {
      options.model = TakeValue(a, i);
    } else if (option == "--udp-port") {
      options.udp_port = ParseCount(TakeValue(a, i));
      udp_port_given = true;
    } else if (option == "--udp") {
      options.udp_mode = UdpMode(TakeValue(a, i));
    } else if (option == "--exception") {
      const std::string& v = TakeValue(a, i);
      const size_t eq = v.find('=');
      if (eq == std::string::npos) return false;
      exceptions.emplace_back(ParseCount(v.substr(0, eq)), ParseCount(v.substr(eq + 1)));
    } else {
      return false;
    }
    return true;
  };
  if (const std::optional<int> exit_code = ReadOptions("adam", kUsage, kUsage, args, read_option)) return *exit_code;
  std::unique_ptr<AdamSim> sim;
  const auto start = [&] {
    try {
      sim = std::make_unique<AdamSim>(options);
      sim->Start();
    } catch (const std::exception& e) {
      if (udp_port_given) throw;
      std::cerr << "vmio-sim adam: " << e.what() << "; the model query takes an ephemeral port instead\n";
      options.udp_port = 0;
      sim = std::make_unique<AdamSim>(options);
      sim->Start();
    }
    for (const auto& [function, code] : exceptions) sim->SetException(function, code);
    std::cerr << "vmio-sim adam: model " << options.model << ", model query on UDP " << options.host << ":"
              << sim->UdpPort() << "\n";
    return sim->DeviceString();
  };
  return StartAndServe("adam", start, [&sim](const std::string& line) { return Control(*sim, line); });
}

}  // namespace vmio::sim::cli
