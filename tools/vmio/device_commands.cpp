#include "device_commands.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <ctime>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "credentials.h"
#include "json.h"
#include "value_text.h"
#include "vmio/enumerator.h"
#include "vmio/error.h"

namespace vmio::cli {
namespace {

// A created and connected device; the object lives as long as this does.
struct OpenDevice {
  std::shared_ptr<Object> object;
  IODevice* device;
};

// While a connect is slow, a line on a terminal says what it waits for, so a hang is not
// mistaken for a crash; the line goes away when the connect returns.
class ConnectProgress {
 public:
  explicit ConnectProgress(std::string what) {
    if (!isatty(STDERR_FILENO)) return;
    thread_ = std::thread([this, what = std::move(what)] {
      std::unique_lock lock(mutex_);
      for (int seconds = 1; !done_.wait_for(lock, std::chrono::seconds(1), [this] { return finished_; }); ++seconds) {
        std::fprintf(stderr, "\rconnecting to %s ... %d s", what.c_str(), seconds);
        std::fflush(stderr);
        shown_ = true;
      }
      if (shown_) std::fputs("\r\033[K", stderr);
    });
  }
  ~ConnectProgress() {
    if (!thread_.joinable()) return;
    {
      std::lock_guard lock(mutex_);
      finished_ = true;
    }
    done_.notify_one();
    thread_.join();
  }
  ConnectProgress(const ConnectProgress&) = delete;
  ConnectProgress& operator=(const ConnectProgress&) = delete;

 private:
  std::mutex mutex_;
  std::condition_variable done_;
  bool finished_ = false;
  bool shown_ = false;
  std::thread thread_;
};

OpenDevice Open(const Target& target) {
  const ClassInfo& cls = target.cls;
  const std::string& device = target.device;
  std::shared_ptr<Object> object = cls.create();
  auto* io = dynamic_cast<IODevice*>(object.get());
  if (!io) throw AutomationError(kMemberNotSupported);
  for (const std::string& command : target.commands) {
    const Variant text[] = {Variant(command)};
    try {
      object->Call("AddCommand", text);
    } catch (const AutomationError& e) {
      if (e.Number() != kMemberNotSupported) throw;
      throw UsageError(std::string(cls.progid) + " takes no --command (only classes with AddCommand, such as rs232)");
    }
  }
  const std::string where = std::string(cls.progid) + " at " + MaskCredentials(device);
  try {
    ConnectProgress progress(where);
    io->Connect(device);
  } catch (const AutomationError& e) {
    throw OperatorError(e, "cannot connect to " + where + " (vmio -v shows why)", true);
  }
  return {std::move(object), io};
}

// What the operator asked of port index, for a message: which port, or the valid range.
std::string PortContext(IODevice& io, int32_t index, int32_t number) {
  int32_t count = -1;
  try {
    count = io.Ports();
  } catch (const AutomationError&) {
  }
  const std::string port = "port " + std::to_string(index);
  if (number == kSubscriptOutOfRange) {
    if (count == 0) return port + " does not exist: the device has no ports";
    if (count > 0) return port + " does not exist: the ports are 0 to " + std::to_string(count - 1);
    return port + " does not exist";
  }
  std::string text = port;
  try {
    text += " (" + EscapeText(io.PortName(index)) + ")";
  } catch (const AutomationError&) {
  }
  if (number == IOErrorInvalidPortDirection) text += " is an input";
  return text;
}

// Runs call on port index; an error it raises says which port it was.
template <class Call>
auto OnPort(IODevice& io, int32_t index, Call call) {
  try {
    return call();
  } catch (const AutomationError& e) {
    throw OperatorError(e, PortContext(io, index, e.Number()));
  }
}

// The port's value for people, or the error reading it raised.
std::string ReadCell(IODevice& device, int32_t index, const std::string& device_string, bool& failed) {
  try {
    return DisplayValue(device.PortValue(index));
  } catch (const AutomationError& e) {
    failed = true;
    return RedactCredentials("error " + std::to_string(e.Number()) + ": " + e.Description(), device_string);
  }
}

}  // namespace

std::string Timestamp(std::chrono::system_clock::time_point now) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  char text[32];
  const size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", std::localtime(&seconds));
  char millis[8];
  std::snprintf(millis, sizeof millis, ".%03d", static_cast<int>(ms));
  return std::string(text, length) + millis;
}

namespace {

void PrintTable(const std::vector<std::array<std::string, 5>>& rows, std::ostream& out) {
  std::array<size_t, 5> widths{};
  for (const auto& row : rows) {
    for (size_t c = 0; c < row.size(); ++c) widths[c] = std::max(widths[c], row[c].size());
  }
  for (const auto& row : rows) {
    std::string line;
    for (size_t c = 0; c < row.size(); ++c) {
      line += row[c];
      if (c + 1 < row.size()) line.append(widths[c] - row[c].size() + 2, ' ');
    }
    out << line << '\n';
  }
}

// One port's value: the value alone for people, {index, name, value} in JSON.
void PrintPortValue(IODevice& io, int32_t index, const Variant& value, const Output& output) {
  if (!output.json) {
    output.out << DisplayValue(value) << '\n';
    return;
  }
  JsonObject line;
  line.AddNumber("index", index);
  try {
    line.AddString("name", io.PortName(index));
  } catch (const AutomationError&) {  // a device without names still has values
  }
  output.out << line.Add("value", JsonValue(value)).Text() << '\n';
}

// What a port of the type takes, for a message.
std::string ValueForm(int32_t type) {
  switch (type) {
    case vtBool:
      return "true/false, on/off or 1/0";
    case vtString:
      return "text";
    case vtR8:
      return "a number";
    default:
      return "a whole number (" + TypeName(type) + ")";
  }
}

}  // namespace

std::optional<Variant> ValueForPort(std::string_view text, int32_t type) {
  switch (type) {
    case vtBool: {
      std::string word(text);
      std::ranges::transform(word, word.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
      if (word == "true" || word == "on" || word == "1") return Variant(true);
      if (word == "false" || word == "off" || word == "0") return Variant(false);
      return std::nullopt;
    }
    case vtString:
      return Variant(std::string(text));
    case vtR8:
      return ParseTypedValue("r8:" + std::string(text));
    case vtI2:
      return ParseTypedValue("i2:" + std::string(text));
    case vtI4:
      return ParseTypedValue("i4:" + std::string(text));
    case vtUI1:
      return ParseTypedValue("u1:" + std::string(text));
    default:
      return std::nullopt;
  }
}

const ClassInfo& FindClass(std::string_view name) {
  if (const ClassInfo* c = vmio::FindClass(name)) return *c;
  throw UsageError("unknown class '" + std::string(name) + "' (vmio classes lists them)");
}

Target::Target(const ClassInfo& cls, std::string device, std::vector<std::string> commands)
    : cls(cls), device(std::move(device)), commands(std::move(commands)) {
  if (!cls.device_string.empty()) return;
  const std::string what = cls.lists_devices ? "it lists devices (vmio scan " + std::string(cls.short_name) + ")"
                                             : std::string(cls.description);
  throw NotADeviceError(std::string(cls.progid) + " is not a device class: " + what +
                        " (vmio classes shows the device classes)");
}

int ListPorts(const Target& target, const Output& output) {
  const ClassInfo& cls = target.cls;
  const std::string& device = target.device;
  OpenDevice open = Open(target);
  IODevice& io = *open.device;
  const int32_t count = io.Ports();
  std::vector<std::array<std::string, 5>> rows{{"index", "name", "direction", "type", "value"}};
  std::string json_ports;
  bool failed = false;
  for (int32_t i = 0; i < count; ++i) {
    const std::string name = io.PortName(i);
    const int32_t direction = io.PortDirection(i);
    const int32_t type = io.PortType(i);
    if (output.json) {
      JsonObject port;
      port.AddNumber("index", i).AddString("name", name).AddString("direction", DirectionName(direction));
      port.AddNumber("type", type).AddString("type_name", TypeName(type));
      try {
        port.Add("value", JsonValue(io.PortValue(i)));
      } catch (const AutomationError& e) {
        failed = true;
        port.AddError(e);
      }
      json_ports += (json_ports.empty() ? "" : ",") + port.Text();
    } else {
      rows.push_back({std::to_string(i), EscapeText(name), DirectionName(direction), TypeName(type),
                      ReadCell(io, i, device, failed)});
    }
  }
  io.Disconnect();
  if (output.json) {
    output.out << JsonObject()
                      .AddString("class", cls.progid)
                      .AddString("device", MaskCredentials(device))
                      .Add("ports", "[" + json_ports + "]")
                      .Text()
               << '\n';
    return failed ? 1 : 0;
  }
  output.out << cls.progid << " at " << MaskCredentials(device) << ": " << count
             << (count == 1 ? " port\n" : " ports\n");
  PrintTable(rows, output.out);
  return failed ? 1 : 0;
}

int GetPort(const Target& target, int32_t index, const Output& output) {
  OpenDevice open = Open(target);
  IODevice& io = *open.device;
  const Variant value = OnPort(io, index, [&] { return io.PortValue(index); });
  PrintPortValue(io, index, value, output);
  io.Disconnect();
  return 0;
}

int SetPort(const Target& target, int32_t index, const std::string& text, const Output& output) {
  OpenDevice open = Open(target);
  IODevice& io = *open.device;
  const int32_t type = OnPort(io, index, [&] { return io.PortType(index); });
  const auto wanted = ValueForPort(text, type);
  if (!wanted) {
    throw UsageError(PortContext(io, index, 0) + " takes " + ValueForm(type) + ", not '" + EscapeText(text) + "'");
  }
  OnPort(io, index, [&] { io.PortValue(index, *wanted); });
  const Variant now = OnPort(io, index, [&] { return io.PortValue(index); });
  PrintPortValue(io, index, now, output);
  io.Disconnect();
  if (FormatTypedValue(now) == FormatTypedValue(*wanted)) return 0;
  throw std::runtime_error(PortContext(io, index, 0) + " reads " + DisplayValue(now) + " after " +
                           DisplayValue(*wanted) + " was written");
}

int ScanDevices(const ClassInfo* cls, const Output& output) {
  if (cls && !cls->lists_devices)
    throw UsageError(std::string(cls->progid) + " does not list devices (vmio scan alone tries every class that does)");
  std::string json;  // with --json: one array of every device found
  for (const ClassInfo& c : vmio::Classes()) {
    if (!c.lists_devices || (cls && cls != &c)) continue;
    const auto list = std::dynamic_pointer_cast<IODeviceEnumerator>(c.create());
    if (!list) throw AutomationError(kMemberNotSupported);
    const int32_t count = list->Count();
    if (output.json) {
      for (const auto& info : *list) {
        json += (json.empty() ? "" : ",") + JsonObject()
                                                .AddString("class", c.progid)
                                                .AddString("id", info->ID())
                                                .AddString("name", info->Name())
                                                .Text();
      }
      continue;
    }
    std::ostream& out = output.out;
    out << c.progid << ": " << count << (count == 1 ? " device\n" : " devices\n");
    std::vector<std::array<std::string, 2>> rows;
    size_t width = 0;
    for (const auto& info : *list) {
      rows.push_back({EscapeText(info->ID()), EscapeText(info->Name())});
      width = std::max(width, rows.back()[0].size());
    }
    for (const auto& [id, name] : rows) out << "  " << id << std::string(width - id.size() + 2, ' ') << name << '\n';
  }
  if (output.json) output.out << "[" << json << "]\n";
  return 0;
}

int WatchPorts(const Target& target, const WatchOptions& options, const Output& output) {
  const ClassInfo& cls = target.cls;
  const std::string& device = target.device;
  OpenDevice open = Open(target);
  IODevice& io = *open.device;
  const int32_t count = io.Ports();
  std::vector<std::string> names;
  for (int32_t i = 0; i < count; ++i) names.push_back(io.PortName(i));
  if (!output.json) {
    output.out << "watching " << cls.progid << " at " << MaskCredentials(device) << ": " << count << " ports, every "
               << options.interval_ms << " ms" << std::endl;
  }
  // A Ctrl-C between two reads ends the watch before the next one.
  const auto stopped = [&] { return options.stop != kNoWaitHandle && WaitRunningEvents(options.stop, 0); };

  std::vector<std::string> last(names.size());
  // A failed read is shown like a value, and watching goes on.
  for (int32_t poll = 0; (!options.count || poll < *options.count) && !stopped(); ++poll) {
    if (poll > 0 && WaitRunningEvents(options.stop, options.interval_ms)) break;
    for (int32_t i = 0; i < count && !stopped(); ++i) {
      std::string value;
      JsonObject json;
      json.AddString("time", IsoTimestamp()).AddNumber("index", i).AddString("name", names[i]);
      try {
        const Variant v = io.PortValue(i);
        value = DisplayValue(v);
        json.Add("value", JsonValue(v));
      } catch (const AutomationError& e) {
        value = RedactCredentials("error " + std::to_string(e.Number()) + ": " + e.Description(), device);
        json.AddError(e);
      }
      if (poll > 0 && value == last[i]) continue;
      if (output.json) {
        output.out << json.Text() << std::endl;
      } else {
        output.out << Timestamp() << "  " << i << "  " << EscapeText(names[i]) << "  " << value << std::endl;
      }
      last[i] = std::move(value);
    }
  }
  io.Disconnect();
  return 0;
}

}  // namespace vmio::cli
