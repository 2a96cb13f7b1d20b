// vmio-sim adam: a simulated ADAM-6000 Ethernet I/O module (Modbus/TCP and its UDP model query).
#include <charconv>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "adam_sim.h"
#include "http_sim_args.h"
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

int Number(const std::string& text) {
  int n = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), n);
  if (ec != std::errc() || end != text.data() + text.size() || n < 0) throw std::invalid_argument(text);
  return n;
}

AdamUdpMode UdpMode(const std::string& word) {
  if (word == "answer") return AdamUdpMode::Answer;
  if (word == "silent") return AdamUdpMode::Silent;
  if (word == "no-cr") return AdamUdpMode::NoCarriageReturn;
  throw std::invalid_argument(word);
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
      if (!on) throw std::invalid_argument(second);
      sim.SetInput(Number(first), *on);
      return States(sim, false);
    }
    if (command == "udp") {
      sim.SetUdpMode(UdpMode(first));
      return "ok";
    }
    if (command == "exception") {
      sim.SetException(Number(first), Number(second));
      return "ok";
    }
  } catch (const std::exception& e) {
    return "error: bad argument '" + std::string(e.what()) + "'";
  }
  return "error: unknown command '" + line + "' (input N on|off, inputs, relays, udp MODE, exception F CODE)";
}

}  // namespace

int RunAdam(const std::vector<std::string>& args) {
  AdamSimOptions options;
  options.udp_port = 1025;
  bool udp_port_given = false;
  std::vector<std::pair<int, int>> exceptions;
  try {
    for (size_t i = 0; i < args.size(); ++i) {
      const std::string& a = args[i];
      if (a == "--help" || a == "-h") {
        std::cout << kUsage;
        return 0;
      }
      if (i + 1 >= args.size()) throw std::invalid_argument(a);
      const std::string& v = args[++i];
      if (a == "--listen") {
        const size_t colon = v.rfind(':');
        if (colon == std::string::npos) throw std::invalid_argument(v);
        options.host = v.substr(0, colon);
        options.modbus_port = Number(v.substr(colon + 1));
      } else if (a == "--model") {
        options.model = v;
      } else if (a == "--udp-port") {
        options.udp_port = Number(v);
        udp_port_given = true;
      } else if (a == "--udp") {
        options.udp_mode = UdpMode(v);
      } else if (a == "--exception") {
        const size_t eq = v.find('=');
        if (eq == std::string::npos) throw std::invalid_argument(v);
        exceptions.emplace_back(Number(v.substr(0, eq)), Number(v.substr(eq + 1)));
      } else {
        throw std::invalid_argument(a);
      }
    }
  } catch (const std::exception& e) {
    std::cerr << "vmio-sim adam: bad argument '" << e.what() << "'\n" << kUsage;
    return 2;
  }
  auto sim = std::make_unique<AdamSim>(options);
  try {
    try {
      sim->Start();
    } catch (const std::exception& e) {
      if (udp_port_given) throw;
      std::cerr << "vmio-sim adam: " << e.what() << "; the model query takes an ephemeral port instead\n";
      options.udp_port = 0;
      sim = std::make_unique<AdamSim>(options);
      sim->Start();
    }
    for (const auto& [function, code] : exceptions) sim->SetException(function, code);
  } catch (const std::exception& e) {
    std::cerr << "vmio-sim adam: " << e.what() << "\n";
    return 1;
  }
  std::cerr << "vmio-sim adam: model " << options.model << ", model query on UDP " << options.host << ":"
            << sim->UdpPort() << "\n";
  return ServeUntilStopped(sim->DeviceString(), [&sim](const std::string& line) { return Control(*sim, line); });
}

}  // namespace vmio::sim::cli
