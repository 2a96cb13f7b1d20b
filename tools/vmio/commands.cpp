#include "commands.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <istream>
#include <map>
#include <optional>
#include <ostream>
#include <vector>

#include "credentials.h"
#include "demo.h"
#include "device_commands.h"
#include "interrupt.h"
#include "json.h"
#include "shell.h"
#include "value_text.h"
#include "vmio/error.h"
#include "vmio/trace.h"
#include "vmio/version.h"

namespace vmio::cli {
namespace {

struct Invocation {
  std::vector<std::string> positional;
  std::map<std::string, std::string, std::less<>> options;  // "--interval" -> "250", "--json" -> ""
  std::istream& in;
  std::ostream& out;

  Output Results() const { return {out, options.contains("--json")}; }
  // DEVICE (the second argument) with the credentials of --user and --password-file (or
  // VMIO_PASSWORD, or the terminal) put in front, so a password need not appear on the
  // command line.
  std::string Device() const;
};

std::string Invocation::Device() const {
  const std::string& device = positional[1];
  const auto user = options.find("--user");
  const auto password_file = options.find("--password-file");
  if (user == options.end()) {
    if (password_file != options.end()) throw UsageError("--password-file needs --user");
    return device;
  }
  const std::optional<std::string> file =
      password_file == options.end() ? std::nullopt : std::optional<std::string>(password_file->second);
  return WithCredentials(device, user->second, file, in);
}

struct Command {
  std::string_view name;
  std::string_view synopsis;                // after "vmio "
  std::string_view summary;                 // one line for `vmio --help`
  std::string_view details;                 // for `vmio COMMAND --help`
  size_t arguments;                         // positional arguments; DEVICE, when taken, is the second
  std::array<std::string_view, 5> options;  // those taking a value
  bool json;                                // whether --json applies
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
  if (inv.Results().json) {
    std::string list;
    for (const ClassInfo& c : vmio::Classes()) {
      list +=
          (list.empty() ? "" : ",") + JsonObject().AddString("progid", c.progid).AddString("name", c.short_name).Text();
    }
    inv.out << "[" << list << "]\n";
    return 0;
  }
  size_t width = 0;
  for (const ClassInfo& c : vmio::Classes()) width = std::max(width, c.progid.size());
  for (const ClassInfo& c : vmio::Classes()) {
    inv.out << c.progid << std::string(width - c.progid.size() + 2, ' ') << c.short_name << '\n';
  }
  return 0;
}

int Scan(const Invocation& inv) {
  return ScanDevices(inv.positional.empty() ? nullptr : &FindClass(inv.positional[0]), inv.Results());
}

int Ports(const Invocation& inv) { return ListPorts(FindClass(inv.positional[0]), inv.Device(), inv.Results()); }

int Get(const Invocation& inv) {
  const ClassInfo& cls = FindClass(inv.positional[0]);
  return GetPort(cls, inv.Device(), ParseIndex(inv.positional[2]), inv.Results());
}

std::optional<bool> ParseState(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (text == "true" || text == "on" || text == "1") return true;
  if (text == "false" || text == "off" || text == "0") return false;
  return std::nullopt;
}

int Set(const Invocation& inv) {
  const ClassInfo& cls = FindClass(inv.positional[0]);
  const int32_t index = ParseIndex(inv.positional[2]);
  const auto state = ParseState(inv.positional[3]);
  if (!state) throw UsageError("the new state is true/false, on/off or 1/0, not '" + inv.positional[3] + "'");
  return SetPort(cls, inv.Device(), index, *state);
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
  return WatchPorts(cls, inv.Device(), options, inv.Results());
}

int Shell(const Invocation& inv) { return RunShell(inv.in, inv.out); }

int Demo(const Invocation& inv) { return RunDemo(DemoTargets(), inv.out) == 0 ? 0 : 1; }

constexpr std::string_view kCredentialOptions[] = {"--user", "--password-file"};

constexpr Command kCommands[] = {
    {"classes",
     "classes [--json]",
     "list the device classes",
     "Lists every class vmio can create: its programmatic name and its short name. CLASS\n"
     "arguments of the other commands take either, in any case. --json prints a JSON array.",
     0,
     {},
     true,
     &Classes},
    {"scan",
     "scan [CLASS] [--json]",
     "list the devices attached to this machine",
     "Asks every class that finds devices on this machine (or only CLASS) for its list, and\n"
     "prints each device's ID, what DEVICE is for that device's class, and its name.\n"
     "LogIT loggers are found among the HID devices (set VMIO_SYSFS_ROOT to look in another\n"
     "device tree, such as the one vmio-sim logit prints).\n"
     "--json prints one JSON array of {class, id, name}.\n"
     "\nexample: vmio scan logitenum, then vmio ports logit /dev/hidraw0",
     0,
     {},
     true,
     &Scan,
     1},
    {"ports",
     "ports CLASS DEVICE [--json]",
     "list a device's ports with their current values",
     "Connects and prints a table of every port: index, name, direction, type and value.\n"
     "--json prints one JSON object with the list of ports; a port whose value cannot be read\n"
     "has an \"error\" field with the number and description instead of a \"value\".\n"
     "\nexample: vmio ports axis 10.0.0.5 --user root --password-file ~/.axis-password",
     2,
     {kCredentialOptions[0], kCredentialOptions[1]},
     true,
     &Ports},
    {"get",
     "get CLASS DEVICE INDEX [--json]",
     "read one port",
     "Connects and prints the value of port INDEX (the first port is 0).\n"
     "\nexample: vmio get vivotek 10.0.0.6 0",
     3,
     {kCredentialOptions[0], kCredentialOptions[1]},
     true,
     &Get},
    {"set",
     "set CLASS DEVICE INDEX on|off",
     "switch an output on or off",
     "Connects and switches output port INDEX on or off (true/false, on/off and 1/0 all do).\n"
     "\nexample: vmio set adam 10.0.0.7 6 on",
     4,
     {kCredentialOptions[0], kCredentialOptions[1]},
     false,
     &Set},
    {"watch",
     "watch CLASS DEVICE [--interval MS] [--count N] [--json]",
     "print port changes as they happen",
     "Reads every port each MS milliseconds (default 500) and prints the time, index, name and\n"
     "value of each port at the start and whenever one changes. Stops after N polls when\n"
     "--count is given, otherwise on Ctrl-C. --json prints one JSON object per line, with the\n"
     "time in ISO 8601 and its zone.\n"
     "\nexample: vmio watch axis root:secret@10.0.0.5 --interval 250",
     2,
     {"--interval", "--count", kCredentialOptions[0], kCredentialOptions[1]},
     true,
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
     false,
     &Shell},
    {"demo",
     "demo",
     "run every driver against its built-in simulated device",
     "Starts a simulated device for every driver, connects, lists and reads the ports,\n"
     "switches the first output over and back, and prints a summary. Exits 1 when a driver\n"
     "fails.",
     0,
     {},
     false,
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
         "front and :port behind (root:secret@10.0.0.5:8080); the last @ ends the password, so it\n"
         "may hold any character. https:// in front asks a camera for TLS; #sha256=FINGERPRINT\n"
         "behind trusts that one certificate, #insecure any (testing only). --user NAME takes\n"
         "the password from --password-file FILE (- for standard input) or VMIO_PASSWORD, or\n"
         "asks for it on a terminal, keeping it out of the command line.\n"
         "\noptions: -v (before or after the command) traces why a call failed to standard error;\n"
         "--version prints the version.\n";
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
    if (name == "--json" && command.json && equals == std::string::npos) {
      inv.options[name] = "";
      continue;
    }
    if (name.empty() || std::ranges::find(command.options, name) == command.options.end()) {
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

int RunCommand(std::span<const std::string> all_args, std::istream& in, std::ostream& out, std::ostream& err) {
  // -v anywhere: the library's trace goes to err while the command runs.
  std::vector<std::string> kept;
  bool verbose = false;
  for (const std::string& arg : all_args) {
    if (arg == "-v" || arg == "--verbose") {
      verbose = true;
    } else {
      kept.push_back(arg);
    }
  }
  const std::span<const std::string> args(kept);
  struct TraceTo {
    explicit TraceTo(std::ostream* stream) : on(stream != nullptr) {
      if (on) SetTraceHandler([stream](std::string_view text) { *stream << "vmio: " << text << std::endl; });
    }
    ~TraceTo() {
      if (on) SetTraceHandler({});
    }
    bool on;
  } trace(verbose ? &err : nullptr);

  if (args.empty()) {
    PrintOverview(err);
    return 2;
  }
  if (args[0] == "--help" || args[0] == "-h" || args[0] == "help") {
    PrintOverview(out);
    return 0;
  }
  if (args[0] == "--version") {
    out << "vmio " << vmio::Version() << '\n';
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
  const bool json = command->json && std::ranges::find(rest, "--json") != rest.end();
  try {
    return RunParsed(*command, rest, in, out);
  } catch (const UsageError& e) {
    err << "vmio " << command->name << ": " << RedactCredentials(e.what(), device) << "\nusage: vmio "
        << command->synopsis << '\n';
    return 2;
  } catch (const AutomationError& e) {
    const auto* operation = dynamic_cast<const OperatorError*>(&e);
    const std::string context = operation ? RedactCredentials(operation->context, device) : std::string();
    const std::string description = RedactCredentials(e.Description(), device);
    if (!context.empty()) err << "vmio " << command->name << ": " << context << '\n';
    err << "error " << e.Number() << ": " << description << '\n';
    if (json) out << JsonObject().AddError(AutomationError(e.Number(), description), context).Text() << '\n';
    return 1;
  } catch (const std::exception& e) {
    err << "vmio " << command->name << ": " << RedactCredentials(e.what(), device) << '\n';
    return 1;
  }
}

}  // namespace vmio::cli
