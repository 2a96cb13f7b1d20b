// vmio-sim adam: a simulated ADAM-6000 Ethernet I/O module (Modbus/TCP and its UDP model query).
#include <sys/resource.h>

#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "adam_sim.h"
#include "control_lines.h"
#include "serve.h"
#include "sim_makes.h"

namespace vmio::sim::cli {
namespace {

constexpr char kUsage[] =
    "usage: vmio-sim adam [options]\n"
    "  --listen HOST:PORT        Modbus/TCP address (default: the first of 127.0.0.1, 127.0.0.2, ...\n"
    "                            where it and the model query's port are free; an ephemeral port)\n"
    "  --model MODEL             model number the module reports (default 6060); 6015 6017 6018\n"
    "                            6024 6050 6051 6052 6060 6066 have points, others none\n"
    "  --udp-port N              port of the model query on HOST (default 1025, where the driver\n"
    "                            asks; with --listen, an ephemeral port when 1025 is taken)\n"
    "  --udp answer|silent|no-cr how the model query is answered (default answer)\n"
    "  --exception F=CODE        answer Modbus function F with exception CODE; repeatable\n";

constexpr char kControlHelp[] =
    "  udp answer|silent|no-cr   change how the model query is answered\n"
    "  exception F CODE          answer function F with exception CODE (0: normally)\n";

AdamUdpMode UdpMode(const std::string& word) {
  if (word == "answer") return AdamUdpMode::Answer;
  if (word == "silent") return AdamUdpMode::Silent;
  if (word == "no-cr") return AdamUdpMode::NoCarriageReturn;
  throw BadArgument(word);
}

std::optional<std::string> Control(AdamSim& sim, const std::string& word, const std::string& rest) {
  if (word == "udp") {
    sim.SetUdpMode(UdpMode(rest));
    return "ok";
  }
  if (word != "exception") return std::nullopt;
  const size_t blank = rest.find(' ');
  if (blank == std::string::npos) throw BadArgument(rest);
  sim.SetException(ParseCount(rest.substr(0, blank)), ParseCount(rest.substr(blank + 1)));
  return "ok";
}

AdamSimOptions Fixture() { return {.model = "6060", .udp_port = kModelQueryPort}; }

// The fixture starts with input 1 on.
std::shared_ptr<AdamSim> Start(const AdamSimOptions& options) {
  auto sim = std::make_shared<AdamSim>(options);
  sim->Start();
  sim->Points().SetInput(1, 1);
  return sim;
}

int Run(const std::vector<std::string>& args) {
  AdamSimOptions options = Fixture();
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
  const std::string help = std::string(kUsage) +
                           "\nWith no options it is the module `vmio demo` runs against.\n"
                           "Prints \"device: DEVICE\" and serves until interrupted. Lines on standard input:\n" +
                           std::string(kPointControlHelp) + kControlHelp;
  if (const std::optional<int> exit_code = ReadOptions("adam", help, kUsage, args, read_option)) return *exit_code;
  // Each client takes a descriptor: let them go past the usual soft limit of 1024.
  if (rlimit limit{}; getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
  }
  std::shared_ptr<AdamSim> sim;
  const auto start = [&] {
    try {
      sim = Start(options);
    } catch (const std::exception& e) {
      if (udp_port_given || options.host.empty()) throw;
      std::cerr << "vmio-sim adam: " << e.what() << "; the model query takes an ephemeral port instead\n";
      options.udp_port = 0;
      sim = Start(options);
    }
    for (const auto& [function, code] : exceptions) sim->SetException(function, code);
    std::cerr << "vmio-sim adam: model " << options.model << ", model query on UDP " << sim->Host() << ":"
              << sim->UdpPort() << "\n";
    return sim->DeviceString();
  };
  const OwnControl control = [&sim](const std::string& word, const std::string& rest) {
    return Control(*sim, word, rest);
  };
  return StartAndServe("adam", start,
                       [&](const std::string& line) { return AnswerControlLine(&sim->Points(), control, line); });
}

const bool kRegistered = RegisterMake({
    .progid = "VMIO.ADAM",
    .start =
        [] {
          const auto sim = Start(Fixture());
          return RunningDevice{sim, sim->DeviceString()};
        },
    .name = "adam",
    .help = "an ADAM-6000 Ethernet I/O module: inputs and relays over Modbus/TCP, model query over UDP",
    .run = &Run,
});

}  // namespace
}  // namespace vmio::sim::cli
