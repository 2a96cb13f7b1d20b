// vmio-sim fleet: many cameras and I/O modules in one process, some of them dead.
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "control_lines.h"
#include "fleet_sim.h"
#include "serve.h"
#include "sim_makes.h"

namespace vmio::sim::cli {
namespace {

constexpr std::string_view kUsage = "usage: vmio-sim fleet [options]   (vmio-sim fleet --help)\n";
constexpr std::string_view kHelp =
    "usage: vmio-sim fleet [options]\n"
    "  --devices N               devices in all (default 10), each on its own loopback address\n"
    "  --adam N                  how many of them are ADAM-6050 modules; the rest are Axis cameras\n"
    "  --silent N                dead devices that accept connections and never answer\n"
    "  --unaccepting N           dead devices whose connects never complete\n"
    "  --base ADDRESS            the first device's address (default 127.20.0.1); the others count up\n"
    "  --delay-ms MS             hold every answer back this long (default 0)\n"
    "  --list FILE               also write the devices there, one \"CLASS DEVICE\" line each\n"
    "Prints one \"CLASS DEVICE HEALTH\" line per device, then \"device: fleet of N\" once serving.\n"
    "Lines on standard input:\n"
    "  input D N on|off          change input N (1-based) of device D (0-based, in list order)\n"
    "  show D                    the states of device D\n";

std::string_view HealthName(FleetHealth health) {
  switch (health) {
    case FleetHealth::Live:
      return "live";
    case FleetHealth::Silent:
      return "silent";
    case FleetHealth::Unaccepting:
      return "unaccepting";
  }
  return "";
}

bool ReadOption(FleetOptions& options, std::string& list, const std::vector<std::string>& args, size_t& i) {
  const std::string& a = args[i];
  if (a == "--devices") {
    options.devices = ParseCount(TakeValue(args, i));
  } else if (a == "--adam") {
    options.adam = ParseCount(TakeValue(args, i));
  } else if (a == "--silent") {
    options.silent = ParseCount(TakeValue(args, i));
  } else if (a == "--unaccepting") {
    options.unaccepting = ParseCount(TakeValue(args, i));
  } else if (a == "--base") {
    options.base = TakeValue(args, i);
  } else if (a == "--delay-ms") {
    options.reply_delay_ms = ParseCount(TakeValue(args, i));
  } else if (a == "--list") {
    list = TakeValue(args, i);
  } else {
    return false;
  }
  return true;
}

std::string Control(FleetSim& fleet, const std::string& line) {
  std::istringstream in(line);
  std::string word, device, number, state, extra;
  in >> word >> device;
  try {
    if (word == "show" && !(in >> extra)) {
      const int d = ParseCount(device);
      std::string shown = "device " + device + ":";
      const FleetDevice& info = fleet.Devices().at(static_cast<size_t>(d));
      const int inputs = info.make == FleetMake::Axis ? FleetOptions{}.camera_inputs : 12;
      for (int n = 1; n <= inputs; ++n) shown += " " + std::to_string(fleet.Input(d, n));
      return shown;
    }
    if (word == "input" && in >> number >> state && !(in >> extra)) {
      const std::optional<bool> on = ParseOnOff(state);
      if (!on) throw BadArgument(state);
      fleet.SetInput(ParseCount(device), ParseCount(number), *on);
      return "device " + device + " input " + number + (*on ? " on" : " off");
    }
  } catch (const std::exception& e) {
    return "error: " + std::string(e.what());
  }
  return "error: unknown command '" + line + "' (see --help)";
}

int Run(const std::vector<std::string>& args) {
  FleetOptions options;
  std::string list;
  if (const std::optional<int> code =
          ReadOptions("fleet", kHelp, kUsage, args,
                      [&](const std::vector<std::string>& a, size_t& i) { return ReadOption(options, list, a, i); })) {
    return *code;
  }
  FleetSim fleet(options);
  const auto start = [&] {
    fleet.Start();
    for (const FleetDevice& d : fleet.Devices())
      std::cout << d.progid << " " << d.device << " " << HealthName(d.health) << "\n";
    if (!list.empty()) {
      std::ofstream out(list);
      out << FleetDeviceList(fleet.Devices());
      if (!out) throw std::runtime_error("cannot write " + list);
    }
    return "fleet of " + std::to_string(fleet.Devices().size());
  };
  return StartAndServe("fleet", start, [&](const std::string& line) { return Control(fleet, line); });
}

const bool kRegistered = RegisterMake({
    .progid = {},
    .start = {},
    .name = "fleet",
    .help = "many Axis cameras and ADAM modules in one process, some dead, for site-sized tests",
    .run = &Run,
});

}  // namespace
}  // namespace vmio::sim::cli
