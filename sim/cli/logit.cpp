// vmio-sim logit: LogIT loggers (and other HID devices) on a device tree of their own.
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "control_lines.h"
#include "logit_sim.h"
#include "scoped_environment.h"
#include "serve.h"
#include "sim_makes.h"

namespace vmio::sim::cli {
namespace {

constexpr char kUsage[] =
    "usage: vmio-sim logit [options]\n"
    "  --root DIR                lay the device tree out in DIR (default: a new temporary one)\n"
    "  --loggers N               how many loggers (default 1)\n"
    "  --model BYTE              their model byte (default 48, a Black Box)\n"
    "  --version TEXT            their 4-byte version text (default 1.05)\n"
    "  --product ID              their USB product ID, hexadecimal (default 0101)\n"
    "  --sensor P=TYPE[:CHANNEL] sensor type code in socket P (0..2); repeatable\n"
    "                            (default: 0=17:1 1=136:2 2=42:3, temperature, relay, light)\n"
    "  --reading P=RAW           the 16-bit reading of socket P; repeatable\n"
    "  --foreign VID:PID         another HID device, hexadecimal IDs; repeatable\n"
    "  --interval MS             input report interval (default 10)\n"
    "  --silent                  take commands but answer none\n"
    "\n"
    "Prints \"root: DIR\" (the value for VMIO_SYSFS_ROOT) and \"device: PATH\" for each logger\n"
    "(what VMIO.LogIT connects to), then plays until interrupted. Lines on standard input act\n"
    "on logger K (1 unless `use K` said otherwise):\n"
    "  use K                     act on logger K from now on\n"
    "  reading P RAW             set socket P's reading\n"
    "  sensor P TYPE [CHANNEL]   plug a sensor into socket P (TYPE 0 unplugs it)\n"
    "  model BYTE                answer the model query with BYTE\n"
    "  version TEXT              answer the version query with TEXT\n"
    "  silent on|off             stop or resume answering\n"
    "  streaming on|off          stop or resume sending input reports\n"
    "  drop                      close every open link to the logger now\n"
    "  jump N                    advance the byte counter by N in the next report\n"
    "  outputs                   show the output mask\n"
    "  received                  show the commands received so far, in hexadecimal\n";

int Number(const std::string& text, int base, int max) {
  size_t used = 0;
  int value = -1;
  try {
    value = std::stoi(text, &used, base);
  } catch (const std::exception&) {
  }
  if (text.empty() || used != text.size() || value < 0 || value > max) throw BadArgument(text);
  return value;
}

// "P=VALUE" into the socket and its value.
std::pair<int, std::string> SocketValue(const std::string& text) {
  const size_t eq = text.find('=');
  if (eq == std::string::npos) throw BadArgument(text);
  return {Number(text.substr(0, eq), 10, 2), text.substr(eq + 1)};
}

std::string Hex(const std::vector<uint8_t>& bytes) {
  std::string out;
  char b[4];
  for (const uint8_t x : bytes) {
    std::snprintf(b, sizeof b, "%s%02X", out.empty() ? "" : " ", x);
    out += b;
  }
  return out;
}

std::string Control(LogITSim& sim, size_t& current, const std::string& line) {
  std::istringstream in(line);
  std::string word;
  in >> word;
  std::vector<std::string> args;
  for (std::string a; in >> a;) args.push_back(a);
  try {
    if (word == "use" && args.size() == 1) {
      const size_t k = static_cast<size_t>(Number(args[0], 10, 1 << 20));
      if (k < 1 || k > sim.Loggers()) throw BadArgument(args[0]);
      current = k - 1;
    } else if (word == "reading" && args.size() == 2) {
      sim.SetReading(current, Number(args[0], 10, 2), static_cast<uint16_t>(Number(args[1], 0, 0xFFFF)));
    } else if (word == "sensor" && (args.size() == 2 || args.size() == 3)) {
      sim.SetSensor(current, Number(args[0], 10, 2), static_cast<uint8_t>(Number(args[1], 0, 255)),
                    static_cast<uint8_t>(args.size() == 3 ? Number(args[2], 0, 255) : 0));
    } else if (word == "model" && args.size() == 1) {
      sim.SetModel(current, static_cast<uint8_t>(Number(args[0], 0, 255)));
    } else if (word == "version" && args.size() == 1) {
      sim.SetVersion(current, args[0]);
    } else if ((word == "silent" || word == "streaming") && args.size() == 1 && ParseOnOff(args[0])) {
      if (word == "silent") sim.SetSilent(current, *ParseOnOff(args[0]));
      if (word == "streaming") sim.SetStreaming(current, *ParseOnOff(args[0]));
    } else if (word == "drop" && args.empty()) {
      sim.DropConnections(current);
    } else if (word == "jump" && args.size() == 1) {
      sim.JumpCounter(current, Number(args[0], 10, 255));
    } else if (word == "outputs" && args.empty()) {
      return "outputs: " + std::to_string(sim.Outputs(current));
    } else if (word == "received" && args.empty()) {
      std::string out = "received:";
      for (const LogITCommand& c : sim.Commands(current)) out += " [" + Hex(c.bytes) + "]";
      return out;
    } else {
      return "error: unknown command '" + line + "' (see vmio-sim logit --help)";
    }
  } catch (const std::exception& e) {
    return "error: " + std::string(e.what());
  }
  return "ok";
}

}  // namespace

int RunLogIT(const std::vector<std::string>& args) {
  LogITSimOptions options;
  LogITLoggerOptions logger;
  int count = 1;
  bool silent = false;
  const auto read_option = [&](const std::vector<std::string>& a, size_t& i) {
    const std::string& option = a[i];
    if (option == "--silent") {
      silent = true;
    } else if (option == "--root") {
      options.root = TakeValue(a, i);
    } else if (option == "--loggers") {
      count = ParseCount(TakeValue(a, i));
    } else if (option == "--model") {
      logger.model = static_cast<uint8_t>(Number(TakeValue(a, i), 0, 255));
    } else if (option == "--version") {
      logger.version = TakeValue(a, i);
    } else if (option == "--product") {
      logger.product_id = static_cast<uint16_t>(Number(TakeValue(a, i), 16, 0xFFFF));
    } else if (option == "--sensor") {
      const auto [p, value] = SocketValue(TakeValue(a, i));
      const size_t colon = value.find(':');
      logger.sockets[static_cast<size_t>(p)].type = static_cast<uint8_t>(Number(value.substr(0, colon), 0, 255));
      logger.sockets[static_cast<size_t>(p)].channel =
          static_cast<uint8_t>(colon == std::string::npos ? 0 : Number(value.substr(colon + 1), 0, 255));
    } else if (option == "--reading") {
      const auto [p, value] = SocketValue(TakeValue(a, i));
      logger.sockets[static_cast<size_t>(p)].reading = static_cast<uint16_t>(Number(value, 0, 0xFFFF));
    } else if (option == "--foreign") {
      const std::string& v = TakeValue(a, i);
      const size_t colon = v.find(':');
      if (colon == std::string::npos) throw BadArgument(v);
      options.foreign.push_back({.vendor_id = static_cast<uint16_t>(Number(v.substr(0, colon), 16, 0xFFFF)),
                                 .product_id = static_cast<uint16_t>(Number(v.substr(colon + 1), 16, 0xFFFF))});
    } else if (option == "--interval") {
      options.report_interval_ms = ParseCount(TakeValue(a, i));
    } else {
      return false;
    }
    return true;
  };
  if (const std::optional<int> exit_code = ReadOptions("logit", kUsage, kUsage, args, read_option)) return *exit_code;
  options.loggers.assign(static_cast<size_t>(count), logger);
  std::unique_ptr<LogITSim> sim;
  size_t current = 0;
  const auto start = [&] {
    sim = std::make_unique<LogITSim>(options);
    std::string devices;
    for (size_t k = 0; k < sim->Loggers(); ++k) {
      sim->SetSilent(k, silent);
      devices += (k ? "\ndevice: " : "") + sim->DevicePath(k);
    }
    std::cout << "root: " << sim->Root() << std::endl;
    return devices.empty() ? std::string("(no loggers)") : devices;
  };
  return StartAndServe("logit", start, [&](const std::string& line) { return Control(*sim, current, line); });
}

namespace {

// A simulated logger and the device tree it lives in, which the library finds through
// VMIO_SYSFS_ROOT while it runs.
struct LoggerOnTree {
  LogITSim logger;
  ScopedEnvironment root{"VMIO_SYSFS_ROOT", logger.Root()};
};

const bool kRegistered = RegisterMake({
    .progid = "VMIO.LogIT",
    .start =
        [] {
          auto tree = std::make_shared<LoggerOnTree>();
          return RunningDevice{tree, tree->logger.DevicePath(0)};
        },
    .lister = "VMIO.LogITEnum",
    .name = "logit",
    .help = "LogIT data loggers on USB: HID reports on seqpacket sockets in a device tree of their own",
    .run = &RunLogIT,
});

}  // namespace
}  // namespace vmio::sim::cli
