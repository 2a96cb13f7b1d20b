#include "commands.h"

#include <algorithm>
#include <array>
#include <istream>
#include <map>
#include <ostream>
#include <vector>

#include "credentials.h"
#include "demo.h"
#include "device_commands.h"
#include "interrupt.h"
#include "shell.h"
#include "value_text.h"
#include "vmio/error.h"

namespace vmio::cli {
namespace {

struct Invocation {
  std::vector<std::string> positional;
  std::map<std::string, std::string, std::less<>> options;  // "--interval" -> "250"
  std::istream& in;
  std::ostream& out;
};

struct Command {
  std::string_view name;
  std::string_view synopsis;  // after "vmio "
  std::string_view summary;   // one line for `vmio --help`
  std::string_view details;   // for `vmio COMMAND --help`
  size_t arguments;           // positional arguments; DEVICE, when taken, is the second
  std::array<std::string_view, 2> options;
  int (*run)(const Invocation&);
  size_t optional_arguments = 0;  // taken after the required ones
};

int32_t ParseIndex(const std::string& text) {
  const auto index = ParseInt32(text);
  if (!index) throw UsageError("INDEX must be a whole number, not '" + text + "'");
  return *index;
}

int32_t PositiveOption(const Invocation& inv, std::string_view name, int32_t fallback) {
  const auto it = inv.options.find(name);
  if (it == inv.options.end()) return fallback;
  const auto value = ParseInt32(it->second);
  if (!value || *value < 1)
    throw UsageError(std::string(name) + " takes a whole number of at least 1, not '" + it->second + "'");
  return *value;
}

int Classes(const Invocation& inv) {
  size_t width = 0;
  for (const ClassInfo& c : vmio::Classes()) width = std::max(width, c.progid.size());
  for (const ClassInfo& c : vmio::Classes()) {
    inv.out << c.progid << std::string(width - c.progid.size() + 2, ' ') << c.short_name << '\n';
  }
  return 0;
}

int Scan(const Invocation& inv) {
  return ScanDevices(inv.positional.empty() ? nullptr : &FindClass(inv.positional[0]), inv.out);
}

int Ports(const Invocation& inv) { return ListPorts(FindClass(inv.positional[0]), inv.positional[1], inv.out); }

int Get(const Invocation& inv) {
  const ClassInfo& cls = FindClass(inv.positional[0]);
  return GetPort(cls, inv.positional[1], ParseIndex(inv.positional[2]), inv.out);
}

int Set(const Invocation& inv) {
  const ClassInfo& cls = FindClass(inv.positional[0]);
  const int32_t index = ParseIndex(inv.positional[2]);
  const auto state = ParseTypedValue("bool:" + inv.positional[3]);
  if (!state) throw UsageError("the new state is true or false, not '" + inv.positional[3] + "'");
  return SetPort(cls, inv.positional[1], index, state->AsBool());
}

int Watch(const Invocation& inv) {
  const ClassInfo& cls = FindClass(inv.positional[0]);
  WatchOptions options;
  options.interval_ms = PositiveOption(inv, "--interval", options.interval_ms);
  if (inv.options.contains("--count")) options.count = PositiveOption(inv, "--count", 1);
  // Ctrl-C ends the watch at once (or after the read under way), and the device is still
  // disconnected properly.
  const InterruptWatch interrupt;
  options.stop = interrupt.Handle();
  return WatchPorts(cls, inv.positional[1], options, inv.out);
}

int Shell(const Invocation& inv) { return RunShell(inv.in, inv.out); }

int Demo(const Invocation& inv) { return RunDemo(DemoTargets(), inv.out) == 0 ? 0 : 1; }

constexpr Command kCommands[] = {
    {"classes",
     "classes",
     "list the device classes",
     "Lists every class vmio can create: its programmatic name and its short name. CLASS\n"
     "arguments of the other commands take either, in any case.",
     0,
     {},
     &Classes},
    {"scan",
     "scan [CLASS]",
     "list the devices attached to this machine",
     "Asks every class that finds devices on this machine (or only CLASS) for its list, and\n"
     "prints each device's ID, what DEVICE is for that device's class, and its name.\n"
     "LogIT loggers are found among the HID devices (set VMIO_SYSFS_ROOT to look in another\n"
     "device tree, such as the one vmio-sim logit prints).\n"
     "\nexample: vmio scan logitenum, then vmio ports logit /dev/hidraw0",
     0,
     {},
     &Scan,
     1},
    {"ports",
     "ports CLASS DEVICE",
     "list a device's ports with their current values",
     "Connects and prints a table of every port: index, name, direction, type and value.\n"
     "\nexample: vmio ports axis root:secret@10.0.0.5",
     2,
     {},
     &Ports},
    {"get",
     "get CLASS DEVICE INDEX",
     "read one port",
     "Connects and prints the value of port INDEX (the first port is 0).\n"
     "\nexample: vmio get vivotek 10.0.0.6 0",
     3,
     {},
     &Get},
    {"set",
     "set CLASS DEVICE INDEX true|false",
     "switch an output on or off",
     "Connects and switches output port INDEX on (true) or off (false).\n"
     "\nexample: vmio set adam 10.0.0.7 6 true",
     4,
     {},
     &Set},
    {"watch",
     "watch CLASS DEVICE [--interval MS] [--count N]",
     "print port changes as they happen",
     "Reads every port each MS milliseconds (default 500) and prints the time, index, name and\n"
     "value of each port at the start and whenever one changes. Stops after N polls when\n"
     "--count is given, otherwise on Ctrl-C.\n"
     "\nexample: vmio watch axis root:secret@10.0.0.5 --interval 250",
     2,
     {"--interval", "--count"},
     &Watch},
    {"shell",
     "shell",
     "run commands read from standard input, one result line each",
     "The line protocol for scripts: one command per line, one result line per command (ok,\n"
     "a typed value, or error N DESCRIPTION). Blank lines and lines starting with # are skipped.\n"
     "\n"
     "  new PROGID   use K   release   connect DEVICE   disconnect   ports\n"
     "  direction I   type I   name I   get I   set I VALUE   call MEMBER [VALUE ...]\n"
     "  item-id KEY   item-name KEY   sleep MS\n"
     "\n"
     "Values: empty, bool:true, u1:N, i2:N, i4:N, r8:X, str:TEXT (escapes \\\\ \\r \\n \\t \\xHH).\n"
     "\nexample: printf 'new VMIO.Axis\\nconnect 10.0.0.5\\nget 0\\n' | vmio shell",
     0,
     {},
     &Shell},
    {"demo",
     "demo",
     "run every driver against its built-in simulated device",
     "Starts a simulated device for every driver, connects, lists and reads the ports,\n"
     "switches the first output over and back, and prints a summary. Exits 1 when a driver\n"
     "fails.",
     0,
     {},
     &Demo},
};

void PrintOverview(std::ostream& out) {
  out << "usage: vmio COMMAND [ARGUMENTS]   (vmio COMMAND --help tells more)\n\ncommands:\n";
  size_t width = 0;
  for (const Command& c : kCommands) width = std::max(width, c.synopsis.size());
  for (const Command& c : kCommands) {
    out << "  " << c.synopsis << std::string(width - c.synopsis.size() + 2, ' ') << c.summary << '\n';
  }
  out << "\nCLASS is a programmatic name (VMIO.Axis) or a short name (axis), see vmio classes.\n"
         "DEVICE is what the driver connects to: an address, optionally with user:password@ in\n"
         "front and :port behind (root:secret@10.0.0.5:8080).\n";
}

int RunParsed(const Command& command, std::span<const std::string> args, std::istream& in, std::ostream& out) {
  Invocation inv{{}, {}, in, out};
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (!arg.starts_with("--")) {
      inv.positional.push_back(arg);
      continue;
    }
    const size_t equals = arg.find('=');
    const std::string name = arg.substr(0, equals);
    if (std::ranges::find(command.options, name) == command.options.end()) {
      throw UsageError("unknown option '" + name + "'");
    }
    if (equals != std::string::npos) {
      inv.options[name] = arg.substr(equals + 1);
    } else if (i + 1 < args.size()) {
      inv.options[name] = args[++i];
    } else {
      throw UsageError(name + " needs a value");
    }
  }
  if (inv.positional.size() < command.arguments) throw UsageError("missing arguments");
  if (inv.positional.size() > command.arguments + command.optional_arguments) throw UsageError("too many arguments");
  return command.run(inv);
}

}  // namespace

int RunCommand(std::span<const std::string> args, std::istream& in, std::ostream& out, std::ostream& err) {
  if (args.empty()) {
    PrintOverview(err);
    return 2;
  }
  if (args[0] == "--help" || args[0] == "-h" || args[0] == "help") {
    PrintOverview(out);
    return 0;
  }
  const auto command = std::ranges::find(kCommands, args[0], &Command::name);
  if (command == std::end(kCommands)) {
    err << "vmio: unknown command '" << args[0] << "' (vmio --help lists them)\n";
    return 2;
  }
  const auto rest = args.subspan(1);
  if (std::ranges::find(rest, "--help") != rest.end() || std::ranges::find(rest, "-h") != rest.end()) {
    out << "usage: vmio " << command->synopsis << "\n\n" << command->details << '\n';
    return 0;
  }
  // The device string, to keep its password out of any message.
  const std::string device = command->arguments >= 2 && rest.size() >= 2 ? rest[1] : std::string();
  try {
    return RunParsed(*command, rest, in, out);
  } catch (const UsageError& e) {
    err << "vmio " << command->name << ": " << RedactCredentials(e.what(), device) << "\nusage: vmio "
        << command->synopsis << '\n';
    return 2;
  } catch (const AutomationError& e) {
    err << "error " << e.Number() << ": " << RedactCredentials(e.Description(), device) << '\n';
    return 1;
  } catch (const std::exception& e) {
    err << "vmio " << command->name << ": " << RedactCredentials(e.what(), device) << '\n';
    return 1;
  }
}

}  // namespace vmio::cli
