#include "device_commands.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <memory>
#include <vector>

#include "credentials.h"
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

OpenDevice Open(const ClassInfo& cls, const std::string& device) {
  std::shared_ptr<Object> object = cls.create();
  auto* io = dynamic_cast<IODevice*>(object.get());
  if (!io) throw AutomationError(438);  // a class that is not a device (an enumerator)
  io->Connect(device);
  return {std::move(object), io};
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

// "2024-05-01 12:00:00.123", local time.
std::string Timestamp() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  char text[32];
  const size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", std::localtime(&seconds));
  char millis[8];
  std::snprintf(millis, sizeof millis, ".%03d", static_cast<int>(ms));
  return std::string(text, length) + millis;
}

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

}  // namespace

const ClassInfo& FindClass(std::string_view name) {
  if (const ClassInfo* c = vmio::FindClass(name)) return *c;
  throw UsageError("unknown class '" + std::string(name) + "' (vmio classes lists them)");
}

int ListPorts(const ClassInfo& cls, const std::string& device, std::ostream& out) {
  OpenDevice open = Open(cls, device);
  IODevice& io = *open.device;
  const int32_t count = io.Ports();
  std::vector<std::array<std::string, 5>> rows{{"index", "name", "direction", "type", "value"}};
  bool failed = false;
  for (int32_t i = 0; i < count; ++i) {
    rows.push_back({std::to_string(i), EscapeText(io.PortName(i)), DirectionName(io.PortDirection(i)),
                    TypeName(io.PortType(i)), ReadCell(io, i, device, failed)});
  }
  io.Disconnect();
  out << cls.progid << " at " << MaskCredentials(device) << ": " << count << (count == 1 ? " port\n" : " ports\n");
  PrintTable(rows, out);
  return failed ? 1 : 0;
}

int GetPort(const ClassInfo& cls, const std::string& device, int32_t index, std::ostream& out) {
  OpenDevice open = Open(cls, device);
  const Variant value = open.device->PortValue(index);
  open.device->Disconnect();
  out << DisplayValue(value) << '\n';
  return 0;
}

int SetPort(const ClassInfo& cls, const std::string& device, int32_t index, bool state) {
  OpenDevice open = Open(cls, device);
  open.device->PortValue(index, Variant(state));
  open.device->Disconnect();
  return 0;
}

int ScanDevices(const ClassInfo* cls, std::ostream& out) {
  if (cls && !cls->lists_devices)
    throw UsageError(std::string(cls->progid) + " does not list devices (vmio scan alone tries every class that does)");
  for (const ClassInfo& c : vmio::Classes()) {
    if (!c.lists_devices || (cls && cls != &c)) continue;
    const auto list = std::dynamic_pointer_cast<IODeviceEnumerator>(c.create());
    if (!list) throw AutomationError(438);
    const int32_t count = list->Count();
    out << c.progid << ": " << count << (count == 1 ? " device\n" : " devices\n");
    std::vector<std::array<std::string, 2>> rows;
    size_t width = 0;
    for (const auto& info : *list) {
      rows.push_back({EscapeText(info->ID()), EscapeText(info->Name())});
      width = std::max(width, rows.back()[0].size());
    }
    for (const auto& [id, name] : rows) out << "  " << id << std::string(width - id.size() + 2, ' ') << name << '\n';
  }
  return 0;
}

int WatchPorts(const ClassInfo& cls, const std::string& device, const WatchOptions& options, std::ostream& out) {
  OpenDevice open = Open(cls, device);
  IODevice& io = *open.device;
  const int32_t count = io.Ports();
  std::vector<std::string> names;
  for (int32_t i = 0; i < count; ++i) names.push_back(EscapeText(io.PortName(i)));
  out << "watching " << cls.progid << " at " << MaskCredentials(device) << ": " << count << " ports, every "
      << options.interval_ms << " ms" << std::endl;

  std::vector<std::string> last(names.size());
  bool failed = false;  // a failed read is shown like a value, and watching goes on
  for (int32_t poll = 0; !options.count || poll < *options.count; ++poll) {
    if (poll > 0 && PumpingWait(options.stop, WaitClock::now() + std::chrono::milliseconds(options.interval_ms))) break;
    for (int32_t i = 0; i < count; ++i) {
      std::string value = ReadCell(io, i, device, failed);
      if (poll > 0 && value == last[i]) continue;
      out << Timestamp() << "  " << i << "  " << names[i] << "  " << value << std::endl;
      last[i] = std::move(value);
    }
  }
  io.Disconnect();
  return 0;
}

}  // namespace vmio::cli
