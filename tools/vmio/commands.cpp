#include "commands.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <istream>
#include <map>
#include <optional>
#include <ostream>
#include <regex>
#include <thread>
#include <vector>

#include "credentials.h"
#include "demo.h"
#include "device_commands.h"
#include "escape_text.h"
#include "interrupt.h"
#include "json.h"
#include "shell.h"
#include "value_text.h"
#include "vmio/error.h"
#include "vmio/trace.h"
#include "vmio/version.h"
#include "watch_many.h"

namespace vmio::cli {
namespace {

struct Invocation {
  std::vector<std::string> positional;
  std::map<std::string, std::string, std::less<>> options;  // "--interval" -> "250", "--json" -> ""
  std::vector<std::string> commands;                        // each --command, unescaped
  std::istream& in;
  std::ostream& out;

  Output Results() const { return {out, options.contains("--json")}; }
  Target Opened() const { return Target(FindClass(positional[0]), Device(), commands); }
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
  std::array<std::string_view, 6> options;  // those taking a value
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
      JsonObject entry;
      entry.AddString("progid", c.progid).AddString("name", c.short_name);
      entry.Add("device", c.device_string.empty() ? "null" : JsonString(c.device_string));
      entry.AddString("description", c.description);
      list += (list.empty() ? "" : ",") + entry.Text();
    }
    inv.out << "[" << list << "]\n";
    return 0;
  }
  const auto device_form = [](const ClassInfo& c) {
    return c.device_string.empty() ? std::string(c.lists_devices ? "(lists devices)" : "(not a device)")
                                   : std::string(c.device_string);
  };
  std::array<size_t, 3> width{};
  for (const ClassInfo& c : vmio::Classes()) {
    width = {std::max(width[0], c.progid.size()), std::max(width[1], c.short_name.size()),
             std::max(width[2], device_form(c).size())};
  }
  const auto pad = [](std::string_view text, size_t to) {
    return std::string(text) + std::string(to - text.size() + 2, ' ');
  };
  for (const ClassInfo& c : vmio::Classes()) {
    inv.out << pad(c.progid, width[0]) << pad(c.short_name, width[1]) << pad(device_form(c), width[2]) << c.description
            << '\n';
  }
  return 0;
}

int Scan(const Invocation& inv) {
  return ScanDevices(inv.positional.empty() ? nullptr : &FindClass(inv.positional[0]), inv.Results());
}

int Ports(const Invocation& inv) { return ListPorts(inv.Opened(), inv.Results()); }

int Get(const Invocation& inv) {
  const Target target = inv.Opened();
  return GetPort(target, ParseIndex(inv.positional[2]), inv.Results());
}

int Set(const Invocation& inv) {
  const Target target = inv.Opened();
  return SetPort(target, ParseIndex(inv.positional[2]), inv.positional[3], inv.Results());
}

// The devices of a watch of several: CLASS DEVICE DEVICE..., or --devices FILE.
std::vector<Target> WatchTargets(const Invocation& inv) {
  const auto list = inv.options.find("--devices");
  if (list == inv.options.end()) {
    const ClassInfo& cls = FindClass(inv.positional[0]);
    std::vector<Target> targets;
    for (size_t i = 1; i < inv.positional.size(); ++i) targets.emplace_back(cls, inv.positional[i]);
    return targets;
  }
  if (!inv.positional.empty()) throw UsageError("--devices FILE takes no CLASS or DEVICE beside it");
  std::ifstream file(list->second);
  if (!file) throw UsageError("cannot read the device list '" + list->second + "'");
  return ReadDeviceList(file);
}

int Watch(const Invocation& inv) {
  WatchOptions options;
  options.interval_ms = PositiveOption(inv, "--interval", options.interval_ms);
  if (inv.options.contains("--count")) options.count = PositiveOption(inv, "--count", 1);
  // Ctrl-C ends the watch at once (or after the read under way), and the device is still
  // disconnected properly.
  const InterruptWatch interrupt;
  options.stop = interrupt.Handle();
  if (inv.positional.size() == 2 && !inv.options.contains("--devices")) {
    const Target target = inv.Opened();
    return WatchPorts(target, options, inv.Results());
  }
  // Several devices: each names its own credentials; --command would have to suit them all.
  for (std::string_view one_device_only : {"--user", "--password-file"}) {
    if (inv.options.contains(one_device_only)) {
      throw UsageError(std::string(one_device_only) + " applies to one DEVICE; put user:password@ in each instead");
    }
  }
  if (!inv.commands.empty()) throw UsageError("--command applies to one DEVICE");
  return WatchMany(WatchTargets(inv), options, inv.Results());
}

int Shell(const Invocation& inv) { return RunShell(inv.in, inv.out); }

int Demo(const Invocation& inv) { return RunSimulatorDemo(inv.out) == 0 ? kExitOk : kExitDevice; }

constexpr size_t kManyDevices = 100000;  // DEVICEs a watch takes beyond its first

constexpr std::string_view kCredentialOptions[] = {"--user", "--password-file"};
constexpr std::string_view kCommandOption = "--command";  // RS232's commands, one per port

constexpr Command kCommands[] = {
    {"classes",
     "classes [--json]",
     "list the classes and what DEVICE is for each",
     "Lists every class vmio can create: its programmatic name, its short name, what DEVICE\n"
     "is for it, and a line about it. CLASS arguments take either name, in any case (as do\n"
     "vmio shell's new, the C and C++ interfaces and Python). Classes that are not devices\n"
     "(the bare interface, the lists of attached devices) show no DEVICE: the device commands\n"
     "refuse them (exit code 3). --json prints a JSON array of {progid, name, device,\n"
     "description}.",
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
     "ports CLASS DEVICE [--command TEXT]... [--json]",
     "list a device's ports with their current values",
     "Connects and prints a table of every port: index, name, direction, type and value.\n"
     "--json prints one JSON object with the list of ports; a port whose value cannot be read\n"
     "has an \"error\" field with the number and description instead of a \"value\".\n"
     "\nexample: vmio ports axis 10.0.0.5 --user root --password-file ~/.axis-password\n"
     "example: vmio ports rs232 /dev/ttyUSB0 --command 'TEMP?\\r' --command 'HUM?\\r'",
     2,
     {kCredentialOptions[0], kCredentialOptions[1], kCommandOption},
     true,
     &Ports},
    {"get",
     "get CLASS DEVICE INDEX [--command TEXT]... [--json]",
     "read one port",
     "Connects and prints the value of port INDEX (the first port is 0).\n"
     "\nexample: vmio get vivotek 10.0.0.6 0\n"
     "example: vmio get rs232 /dev/ttyUSB0 0 --command 'TEMP?\\r'",
     3,
     {kCredentialOptions[0], kCredentialOptions[1], kCommandOption},
     true,
     &Get},
    {"set",
     "set CLASS DEVICE INDEX VALUE [--json]",
     "write an output port and print what it reads then",
     "Connects, writes VALUE to port INDEX as the port takes it, reads the port back and\n"
     "prints what it reads. A Boolean port (a switch) takes true/false, on/off or 1/0; a\n"
     "string port takes the text (a door: Locked, Unlocked, ...); a numeric port a number.\n"
     "Exits 1 when the port reads other than what was written. --json prints {index, name,\n"
     "value} as read back.\n"
     "\nexample: vmio set adam 10.0.0.7 6 on\n"
     "example: vmio set door AX200 0 Locked",
     4,
     {kCredentialOptions[0], kCredentialOptions[1]},
     true,
     &Set},
    {"watch",
     "watch CLASS DEVICE [DEVICE...] [--devices FILE] [--interval MS] [--count N] [--command TEXT]... [--json]",
     "print port changes as they happen",
     "Reads every port each MS milliseconds (default 500) and prints the time, index, name and\n"
     "value of each port at the start and whenever one changes. Stops after N polls when\n"
     "--count is given, otherwise on Ctrl-C. --json prints one JSON object per line, with the\n"
     "time in ISO 8601 and its zone.\n"
     "Several devices (more than one DEVICE, or --devices FILE with one \"CLASS DEVICE\" per\n"
     "line, # comment lines and blank lines skipped) are watched at once: every line (or JSON\n"
     "object, with \"device\" and \"class\") names its device as given, password masked, and\n"
     "a device's errors and state changes (connecting, online, stale, offline) appear as they\n"
     "happen without holding back the others, which a dead device's retries never delay.\n"
     "There, --count N stops after N intervals.\n"
     "\nexample: vmio watch axis root:secret@10.0.0.5 --interval 250\n"
     "example: vmio watch --devices site.list --json",
     2,
     {"--interval", "--count", "--devices", kCredentialOptions[0], kCredentialOptions[1], kCommandOption},
     true,
     &Watch,
     kManyDevices},
    {"shell",
     "shell",
     "run commands read from standard input, one result line each",
     "The line protocol for scripts: one command per line, one result line per command (ok,\n"
     "a typed value, or error N DESCRIPTION). Blank lines and lines starting with # are skipped.\n"
     "\n"
     "  new CLASS   use K   release   connect DEVICE   disconnect   ports\n"
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
     "Runs vmio-sim demo (VMIO_SIM names the program; else the one beside vmio, else the\n"
     "one on PATH): it starts a simulated device for every driver, connects, lists and reads\n"
     "the ports, switches the first output over and back, and prints a summary. Exits 1 when\n"
     "a driver fails.",
     0,
     {},
     false,
     &Demo},
};

bool ContainsNoCase(std::string_view text, std::string_view part) {
  // The iterator form: clang 14 cannot take string views as ranges of this standard library.
  const auto same = [](char a, char b) { return std::tolower(a) == std::tolower(b); };
  return !part.empty() && std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end();
}

// What kind of failure an error was: the trace (the last HTTP status, a transport's time-out)
// tells what the number alone does not, as most drivers report any failed connect as 45001.
int ExitCodeOf(const AutomationError& e, bool connecting, std::span<const std::string> trace) {
  static const std::regex kHttpStatus("^http: HTTP/[0-9.]+ ([0-9]{3})");
  std::string last_status;
  bool timed_out = ContainsNoCase(e.Description(), "timed out");
  for (const std::string& line : trace) {
    std::smatch m;
    if (std::regex_search(line, m, kHttpStatus)) last_status = m[1];
    if (ContainsNoCase(line, "timed out") || ContainsNoCase(line, "timeout")) timed_out = true;
  }
  if (e.Number() == IOErrorAuthFailed || last_status == "401" || last_status == "403") return kExitAuthorisation;
  if (timed_out) return kExitTimeout;
  if (connecting || e.Number() == IOErrorConnectionFailed || e.Number() == kHttpConnectFailed) return kExitConnection;
  return kExitDevice;
}

void PrintOverview(std::ostream& out) {
  out << "usage: vmio COMMAND [ARGUMENTS]   (vmio COMMAND --help tells more)\n\ncommands:\n";
  // Each command's synopsis, then its summary: beside it, or below it when it is long.
  constexpr size_t kWidth = 36;
  for (const Command& c : kCommands) {
    out << "  " << c.synopsis;
    if (c.synopsis.size() > kWidth)
      out << "\n  " << std::string(kWidth, ' ');
    else
      out << std::string(kWidth - c.synopsis.size(), ' ');
    out << "  " << c.summary << '\n';
  }
  out << "\nCLASS is a programmatic name (VMIO.Axis) or a short name (axis), see vmio classes.\n"
         "DEVICE is what the driver connects to: an address, optionally with user:password@ in\n"
         "front and :port behind (root:secret@10.0.0.5:8080); the last @ ends the password, so it\n"
         "may hold any character. https:// in front asks a camera for TLS; #sha256=FINGERPRINT\n"
         "behind trusts that one certificate, #insecure any (testing only). --user NAME takes\n"
         "the password from --password-file FILE (- for standard input) or VMIO_PASSWORD, or\n"
         "asks for it on a terminal, keeping it out of the command line.\n"
         "--command TEXT (repeated) adds RS232 commands, one port each, before connecting; TEXT\n"
         "takes the escapes \\r \\n \\t \\\\ \\xHH ('READ?\\r'; '\\r\\n' alone listens).\n"
         "\noptions: -v (before or after the command) traces why a call failed to standard error;\n"
         "--version prints the version.\n"
         "\nexit codes: 0 done, 1 device error, 2 usage, 3 class is not a device, 4 cannot connect,\n"
         "5 credentials refused, 6 timed out.\n";
}

int RunParsed(const Command& command, std::span<const std::string> args, std::istream& in, std::ostream& out) {
  Invocation inv{{}, {}, {}, in, out};
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
    std::string value;
    if (equals != std::string::npos) {
      value = arg.substr(equals + 1);
    } else if (i + 1 < args.size()) {
      value = args[++i];
    } else {
      throw UsageError(name + " needs a value");
    }
    if (name == kCommandOption) {
      auto text = UnescapeText(value);
      if (!text) throw UsageError("--command takes text with the escapes \\\\ \\r \\n \\t \\xHH, not '" + value + "'");
      inv.commands.push_back(std::move(*text));
    } else {
      inv.options[name] = std::move(value);
    }
  }
  // --devices FILE names the devices instead (only watch takes it).
  if (inv.positional.size() < command.arguments && !inv.options.contains("--devices"))
    throw UsageError("missing arguments");
  if (inv.positional.size() > command.arguments + command.optional_arguments) throw UsageError("too many arguments");
  return command.run(inv);
}

}  // namespace

int RunCommand(std::span<const std::string> all_args, std::istream& in, std::ostream& out, std::ostream& err) {
  // -v anywhere: the library's trace goes to err while the command runs. The trace is kept
  // either way: it tells why a connect failed (a 401, a time-out), which the exit code says.
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
    explicit TraceTo(std::ostream* stream) {
      // The command's own traces only: other threads of a host that runs it keep theirs.
      SetTraceHandler([this, stream, owner = std::this_thread::get_id()](std::string_view text) {
        if (std::this_thread::get_id() != owner) return;
        lines.emplace_back(text);
        if (stream) *stream << "vmio: " << text << std::endl;
      });
    }
    ~TraceTo() { SetTraceHandler({}); }
    TraceTo(const TraceTo&) = delete;
    TraceTo& operator=(const TraceTo&) = delete;
    std::vector<std::string> lines;
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
    return kExitUsage;
  } catch (const NotADeviceError& e) {
    err << "vmio " << command->name << ": " << e.what() << '\n';
    return kExitNotADevice;
  } catch (const AutomationError& e) {
    const auto* operation = dynamic_cast<const OperatorError*>(&e);
    const std::string context = operation ? RedactCredentials(operation->context, device) : std::string();
    const std::string description = RedactCredentials(e.Description(), device);
    if (!context.empty()) err << "vmio " << command->name << ": " << context << '\n';
    err << "error " << e.Number() << ": " << description << '\n';
    if (json) out << JsonObject().AddError(AutomationError(e.Number(), description), context).Text() << '\n';
    return ExitCodeOf(e, operation && operation->connecting, trace.lines);
  } catch (const std::exception& e) {
    err << "vmio " << command->name << ": " << RedactCredentials(e.what(), device) << '\n';
    return kExitDevice;
  }
}

}  // namespace vmio::cli
