#include "watch_many.h"

#include <algorithm>
#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <ostream>

#include "credentials.h"
#include "json.h"
#include "value_text.h"
#include "vmio/engine.h"
#include "vmio/error.h"

namespace vmio::cli {
namespace {

// Ctrl-C is looked at this often while the engine runs.
constexpr int64_t kStopCheckMs = 100;

std::string Trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return std::string(text.substr(first, text.find_last_not_of(kBlanks) - first + 1));
}

// A port event waits at most this long for the device to tell its port names.
constexpr int64_t kNameWaitMs = 1000;

// One watched device as the operator named it.
struct Watched {
  std::string progid;
  std::string device;  // as given, for redacting its password from descriptions
  std::string label;   // as given, password masked
  std::shared_ptr<IODevice> io;
  std::vector<std::string> names;  // its port names, once it could tell them
  std::deque<EngineEvent> held;    // port events waiting for the names, in order
};

// Reads the port names once: a device busy with an exchange cannot tell them (5), nor one not
// connected yet, so this is tried again later.
bool KnowsNames(Watched& watched) {
  if (!watched.names.empty()) return true;
  try {
    std::vector<std::string> names;
    for (int32_t i = 0, count = watched.io->Ports(); i < count; ++i) names.push_back(watched.io->PortName(i));
    watched.names = std::move(names);
  } catch (const AutomationError&) {
  }
  return !watched.names.empty();
}

const std::string& PortName(const Watched& watched, int32_t index) {
  static const std::string kNone;
  return index >= 0 && static_cast<size_t>(index) < watched.names.size() ? watched.names[index] : kNone;
}

void Print(const Watched& watched, const EngineEvent& event, const Output& output) {
  using Clock = std::chrono::system_clock;
  const Clock::time_point when = Clock::now() - std::chrono::milliseconds(Engine::Now() - event.time_ms);
  const bool on_port = event.port >= 0 && event.kind != EngineEvent::Kind::kState;
  const std::string& name = on_port ? PortName(watched, event.port) : std::string();
  const AutomationError error(event.error, RedactCredentials(event.description, watched.device));
  if (output.json) {
    JsonObject json;
    json.AddString("time", IsoTimestamp(when)).AddString("device", watched.label).AddString("class", watched.progid);
    if (on_port) json.AddNumber("index", event.port).AddString("name", name);
    if (event.kind == EngineEvent::Kind::kValue) json.Add("value", JsonValue(event.value));
    if (event.kind == EngineEvent::Kind::kState) json.AddString("state", DeviceStateName(event.state));
    if (event.kind == EngineEvent::Kind::kError) json.AddError(error);
    output.out << json.Text() << std::endl;
    return;
  }
  std::string line = Timestamp(when) + "  " + watched.label + "  ";
  if (on_port) line += std::to_string(event.port) + "  " + EscapeText(name) + "  ";
  if (event.kind == EngineEvent::Kind::kValue) line += DisplayValue(event.value);
  if (event.kind == EngineEvent::Kind::kState) line += std::string("state ") + DeviceStateName(event.state);
  if (event.kind == EngineEvent::Kind::kError) {
    line += "error " + std::to_string(error.Number()) + ": " + error.Description();
  }
  output.out << line << std::endl;
}

// Prints an event, or holds a port event back until the device's port names are known (or
// kNameWaitMs passed: then it goes without a name rather than late).
void Show(Watched& watched, EngineEvent event, const Output& output) {
  const bool on_port = event.port >= 0 && event.kind != EngineEvent::Kind::kState;
  if (watched.held.empty() && (!on_port || KnowsNames(watched))) {
    Print(watched, event, output);
    return;
  }
  watched.held.push_back(std::move(event));
}

void ShowHeld(Watched& watched, const Output& output, bool ending = false) {
  if (watched.held.empty()) return;
  if (!KnowsNames(watched) && !ending && Engine::Now() - watched.held.front().time_ms < kNameWaitMs) return;
  for (const EngineEvent& event : watched.held) Print(watched, event, output);
  watched.held.clear();
}

}  // namespace

std::vector<Target> ReadDeviceList(std::istream& in) {
  std::vector<Target> targets;
  int number = 0;
  for (std::string raw; std::getline(in, raw);) {
    ++number;
    const std::string line = Trimmed(raw);
    if (line.empty() || line.front() == '#') continue;
    const std::string at_line = "line " + std::to_string(number) + ": ";
    const size_t blank = line.find_first_of(" \t");
    if (blank == std::string::npos) throw UsageError(at_line + "expected CLASS DEVICE");
    const std::string device = Trimmed(std::string_view(line).substr(blank));
    try {
      targets.emplace_back(FindClass(line.substr(0, blank)), device);
    } catch (const UsageError& e) {
      throw UsageError(at_line + e.what());
    } catch (const NotADeviceError& e) {
      throw NotADeviceError(at_line + e.what());
    }
  }
  if (targets.empty()) throw UsageError("the device list names no device");
  return targets;
}

int WatchMany(const std::vector<Target>& targets, const WatchOptions& options, const Output& output) {
  Engine engine;
  vmio::WatchOptions watch;
  watch.interval_ms = std::max(options.interval_ms, 10);  // the engine's shortest interval
  std::map<int32_t, Watched> watched;                     // by the engine's id
  for (const Target& target : targets) {
    std::shared_ptr<Object> object = target.cls.create();
    auto io = std::dynamic_pointer_cast<IODevice>(object);
    if (!io) throw AutomationError(kMemberNotSupported);
    const int32_t id = engine.Add(object, target.device, watch);
    watched[id] = {std::string(target.cls.progid), target.device, MaskCredentials(target.device), io, {}, {}};
  }
  if (!output.json) {
    output.out << "watching " << watched.size() << " devices, every " << options.interval_ms << " ms" << std::endl;
  }
  const int64_t start = Engine::Now();
  const int64_t end = options.count ? start + int64_t{*options.count} * options.interval_ms : INT64_MAX;
  for (;;) {
    const int64_t now = Engine::Now();
    if (now >= end || (options.stop != kNoWaitHandle && WaitRunningEvents(options.stop, 0))) break;
    engine.RunUntil(std::min(end, now + kStopCheckMs));
    for (EngineEvent event; engine.NextEvent(event);) Show(watched.at(event.device), std::move(event), output);
    for (auto& [id, one] : watched) ShowHeld(one, output);
  }
  for (auto& [id, one] : watched) ShowHeld(one, output, true);
  return 0;
}

}  // namespace vmio::cli
