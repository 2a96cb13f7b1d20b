#include "bridge.h"

#include <algorithm>

#include "credentials.h"
#include "json.h"
#include "vmio/error.h"
#include "vmio/io_device.h"
#include "vmio/objects.h"

namespace vmio::gateway {
namespace {

using cli::JsonObject;

// What a set answers when the gateway refuses it before any write: the automation numbers a
// blocking write would raise for the same mistake.
constexpr int32_t kSubscriptOutOfRange = 9;
constexpr int32_t kTypeMismatch = 13;
// A device answers for its port table only between its exchanges, which are short: ask again
// this soon.
constexpr int64_t kLearnRetryMs = 20;

WatchOptions OptionsFor(const DeviceConfig& device) {
  WatchOptions options;
  options.interval_ms = device.interval_ms;
  // Offline within two intervals of the last good read; stale (still shown) in between.
  options.stale_after_ms = device.interval_ms + device.interval_ms / 2;
  options.offline_after_ms = 2 * device.interval_ms;
  return options;
}

}  // namespace

bool Available(DeviceState state) { return state == DeviceState::kOnline || state == DeviceState::kStale; }

Bridge::Bridge(const Config& config, Engine& engine, MqttClient& mqtt)
    : config_(config), engine_(engine), mqtt_(mqtt), topics_(config.mqtt.prefix) {
  devices_.reserve(config_.devices.size());
  for (const DeviceConfig& c : config_.devices) {
    std::shared_ptr<Object> object = CreateObject(c.progid);
    for (const std::string& command : c.commands) {
      const Variant text[] = {Variant(command)};
      object->Call("AddCommand", text);
    }
    Device device;
    device.config = c;
    device.id = engine_.Add(std::move(object), c.device, OptionsFor(c));
    by_name_[c.name] = devices_.size();
    by_id_[device.id] = devices_.size();
    devices_.push_back(std::move(device));
  }
  stats_at_ = Engine::Now() + config_.mqtt.stats_interval_ms;
}

void Bridge::Connected() {
  mqtt_.Publish(topics_.BridgeState(), "online", true, 1);
  mqtt_.Subscribe(topics_.SetFilter());
  if (!config_.mqtt.discovery_prefix.empty()) mqtt_.Subscribe(config_.mqtt.discovery_prefix + "/status");
  // A restarted broker may have lost every retained message: send them all again.
  for (Device& device : devices_) {
    PublishDiscovery(device);
    PublishAvailability(device);
    for (size_t port = 0; port < device.states.size(); ++port) {
      if (!device.states[port].empty()) PublishState(device, static_cast<int32_t>(port), device.states[port], 0, true);
    }
  }
  PublishStats();
}

void Bridge::Message(const std::string& topic, const std::string& payload, bool retained) {
  if (!config_.mqtt.discovery_prefix.empty() && topic == config_.mqtt.discovery_prefix + "/status") {
    // Home Assistant restarted and forgot its entities' states: announce and send them again.
    if (payload == "online") Connected();
    return;
  }
  const std::optional<Topics::SetTarget> target = topics_.ParseSet(topic);
  if (!target) return;
  if (retained) {
    // A retained command would switch the output again at every gateway start.
    Log(LogLevel::kDebug, "ignored retained set on " + topic);
    return;
  }
  const auto found = by_name_.find(target->device);
  if (found == by_name_.end()) {
    Log(LogLevel::kDebug, "ignored set for unknown device on " + topic);
    return;
  }
  Set(devices_[found->second], target->port, payload);
}

void Bridge::Set(Device& device, const std::string& port_text, const std::string& payload) {
  const std::optional<int32_t> port = ParsePortIndex(port_text);
  auto reject = [&](int32_t number, const std::string& description) {
    ++stats_.sets_rejected;
    PublishError(device, port.value_or(-1), number, description, payload);
  };
  if (!port) {
    // No error topic exists for a port that is not a number; the log says why nothing happened.
    ++stats_.sets_rejected;
    Log(LogLevel::kWarning, device.config.name + ": ignored set for port '" + port_text + "' (ports are 0, 1, ...)");
    return;
  }
  if (device.ports.empty() && !LearnPorts(device)) {
    return reject(IOErrorNotConnected, "Not connected");  // the drivers' text for 45003
  }
  if (*port >= static_cast<int32_t>(device.ports.size())) {
    return reject(kSubscriptOutOfRange, AutomationError(kSubscriptOutOfRange).Description());
  }
  std::optional<Variant> value = ParseSetPayload(payload, device.ports[*port].type);
  if (!value) return reject(kTypeMismatch, AutomationError(kTypeMismatch).Description());
  if (device.sets.size() >= static_cast<size_t>(device.config.max_queued_sets)) {
    // A flood of commands must not grow without bound; the newest ones are what was meant.
    device.sets.pop_front();
    ++stats_.sets_dropped;
    Log(LogLevel::kDebug, device.config.name + ": set queue full, dropped the oldest");
  }
  device.sets.push_back({*port, std::move(*value)});
  StartNextSet(device);
}

void Bridge::StartNextSet(Device& device) {
  if (device.writing || device.sets.empty()) return;
  PendingSet set = std::move(device.sets.front());
  device.sets.pop_front();
  try {
    engine_.Write(device.id, set.port, set.value);
    device.writing = true;
    device.writing_port = set.port;
  } catch (const AutomationError& e) {
    ++stats_.write_errors;
    PublishError(device, set.port, e.Number(), e.Description(), StateText(set.value));
  }
}

void Bridge::DrainEvents() {
  EngineEvent event;
  while (engine_.NextEvent(event)) OnEvent(event);
}

void Bridge::OnEvent(const EngineEvent& event) {
  const auto found = by_id_.find(event.device);
  if (found == by_id_.end()) return;
  Device& device = devices_[found->second];
  const std::string& name = device.config.name;
  switch (event.kind) {
    case EngineEvent::Kind::kValue:
      ++stats_.values;
      if (device.ports.empty()) LearnPorts(device);
      if (event.port >= 0 && static_cast<size_t>(event.port) < device.states.size()) {
        PublishState(device, event.port, StateText(event.value), event.time_ms, false);
      }
      break;
    case EngineEvent::Kind::kState: {
      const bool was_available = Available(device.state);
      device.state = event.state;
      std::string line = name + ": " + DeviceStateName(event.state);
      if (event.state == DeviceState::kOffline && !device.last_error.empty()) line += " (" + device.last_error + ")";
      Log(event.state == DeviceState::kOffline ? LogLevel::kWarning : LogLevel::kInfo, line);
      if (Available(event.state)) device.last_error.clear();  // a new failure is news again
      if (Available(event.state) && device.ports.empty()) LearnPorts(device);
      if (Available(event.state) != was_available || event.state == DeviceState::kOffline) PublishAvailability(device);
      break;
    }
    case EngineEvent::Kind::kError: {
      ++stats_.errors;
      const std::string text =
          std::to_string(event.error) + " " + cli::RedactCredentials(event.description, device.config.device);
      // A dead device fails every retry the same way: say it once.
      Log(text == device.last_error ? LogLevel::kDebug : LogLevel::kWarning,
          name + (event.port >= 0 ? " port " + std::to_string(event.port) : "") + ": " + text);
      device.last_error = text;
      break;
    }
    case EngineEvent::Kind::kWrite:
      device.writing = false;
      if (event.error == 0) {
        ++stats_.writes;
        if (static_cast<size_t>(event.port) < device.states.size()) {
          PublishState(device, event.port, StateText(event.value), event.time_ms, false);
        }
      } else {
        ++stats_.write_errors;
        PublishError(device, event.port, event.error, cli::RedactCredentials(event.description, device.config.device),
                     StateText(event.value));
      }
      StartNextSet(device);
      break;
  }
}

bool Bridge::LearnPorts(Device& device) {
  auto* io = dynamic_cast<IODevice*>(engine_.Device(device.id).get());
  if (!io) return false;
  std::vector<PortInfo> ports;
  try {
    const int32_t count = io->Ports();
    for (int32_t i = 0; i < count; ++i) {
      PortInfo port{io->PortDirection(i), io->PortType(i), io->PortName(i)};
      if (const auto named = device.config.port_names.find(i); named != device.config.port_names.end()) {
        port.name = named->second;
      }
      ports.push_back(std::move(port));
    }
  } catch (const AutomationError& e) {
    // Not connected yet, or in the middle of an exchange: ask again soon.
    Log(LogLevel::kDebug, device.config.name + ": port table not available yet (" + e.Description() + ")");
    if (learn_at_ < 0) learn_at_ = Engine::Now() + kLearnRetryMs;
    return false;
  }
  device.ports = std::move(ports);
  device.states.assign(device.ports.size(), "");
  // The entities first, then the values read before the table was known.
  PublishDiscovery(device);
  const std::vector<Variant> values = engine_.Values(device.id);
  for (size_t i = 0; i < values.size() && i < device.ports.size(); ++i) {
    PublishState(device, static_cast<int32_t>(i), StateText(values[i]), Engine::Now(), false);
  }
  return true;
}

void Bridge::PublishState(Device& device, int32_t port, const std::string& text, int64_t read_ms, bool force) {
  if (!force && device.states[port] == text) return;
  device.states[port] = text;
  if (!mqtt_.Publish(topics_.State(device.config.name, port), text, true, 0)) return;
  ++stats_.published;
  if (read_ms > 0) {
    const int64_t latency = Engine::Now() - read_ms;
    stats_.latency_sum_ms += latency;
    stats_.latency_max_ms = std::max(stats_.latency_max_ms, latency);
    ++stats_.latency_count;
  }
}

void Bridge::PublishAvailability(const Device& device) {
  mqtt_.Publish(topics_.Availability(device.config.name), Available(device.state) ? "online" : "offline", true, 1);
}

void Bridge::PublishDiscovery(const Device& device) {
  if (device.ports.empty()) return;
  for (const MqttMessage& m : DiscoveryMessages(config_.mqtt, device.config, device.ports)) {
    mqtt_.Publish(m.topic, m.payload, true, 1);
  }
}

void Bridge::PublishError(const Device& device, int32_t port, int32_t number, const std::string& description,
                          const std::string& payload) {
  Log(LogLevel::kInfo, device.config.name + " port " + std::to_string(port) + ": set '" + payload +
                           "' refused: " + std::to_string(number) + " " + description);
  if (port < 0) return;
  mqtt_.Publish(topics_.Error(device.config.name, port),
                JsonObject()
                    .AddNumber("number", number)
                    .AddString("description", description)
                    .AddString("payload", payload.substr(0, 256))
                    .Text(),
                false, 0);
}

int64_t Bridge::Timeout(int64_t now_ms) const {
  int64_t due = stats_at_;
  if (learn_at_ >= 0) due = std::min(due, learn_at_);
  return std::max<int64_t>(0, due - now_ms);
}

void Bridge::RunTimers(int64_t now_ms) {
  if (learn_at_ >= 0 && now_ms >= learn_at_) {
    learn_at_ = -1;
    for (Device& device : devices_) {
      if (device.ports.empty() && Available(device.state)) LearnPorts(device);
    }
  }
  if (now_ms < stats_at_) return;
  stats_at_ = now_ms + config_.mqtt.stats_interval_ms;
  PublishStats();
}

void Bridge::PublishStats() {
  int64_t online = 0;
  for (const Device& device : devices_) online += Available(device.state) ? 1 : 0;
  const int64_t mean = stats_.latency_count ? stats_.latency_sum_ms / stats_.latency_count : 0;
  const std::string latency = JsonObject()
                                  .AddNumber("count", stats_.latency_count)
                                  .AddNumber("mean", mean)
                                  .AddNumber("max", stats_.latency_max_ms)
                                  .Text();
  mqtt_.Publish(topics_.BridgeStats(),
                JsonObject()
                    .AddNumber("devices", static_cast<int64_t>(devices_.size()))
                    .AddNumber("available", online)
                    .AddNumber("value_changes", stats_.values)
                    .AddNumber("read_errors", stats_.errors)
                    .AddNumber("writes", stats_.writes)
                    .AddNumber("write_errors", stats_.write_errors)
                    .AddNumber("sets_rejected", stats_.sets_rejected)
                    .AddNumber("sets_dropped", stats_.sets_dropped)
                    .AddNumber("events_dropped", static_cast<int64_t>(engine_.DroppedEvents()))
                    .AddNumber("states_published", stats_.published)
                    .Add("publish_latency_ms", latency)
                    .Text(),
                true, 0);
  // The latency figures cover one period each.
  stats_.latency_sum_ms = stats_.latency_max_ms = stats_.latency_count = 0;
}

}  // namespace vmio::gateway
