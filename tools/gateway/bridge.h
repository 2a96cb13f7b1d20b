#pragma once
// Between the engine and the broker: engine events become retained state, availability and
// discovery messages; set messages become queued writes, each answered by the new state or
// an error. Everything runs on the loop's thread.
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "config.h"
#include "discovery.h"
#include "mqtt_client.h"
#include "topics.h"
#include "vmio/engine.h"

namespace vmio::gateway {

class Bridge {
 public:
  // Adds every device of the configuration to engine; publishes through mqtt.
  Bridge(const Config& config, Engine& engine, MqttClient& mqtt);

  // The broker accepted the connection: subscribe and publish everything again.
  void Connected();
  void Message(const std::string& topic, const std::string& payload, bool retained);
  // Takes the engine's waiting events.
  void DrainEvents();
  // Milliseconds until RunTimers is due; the statistics are published on it.
  int64_t Timeout(int64_t now_ms) const;
  void RunTimers(int64_t now_ms);

 private:
  struct PendingSet {
    int32_t port;
    Variant value;
  };
  struct Device {
    DeviceConfig config;
    int32_t id = 0;
    std::vector<PortInfo> ports;      // empty until the device has connected once
    std::vector<std::string> states;  // the last published state text per port ("" none yet)
    DeviceState state = DeviceState::kConnecting;
    std::string last_error;       // told once per state, not every retry
    std::deque<PendingSet> sets;  // waiting for the one in flight
    bool writing = false;
    int32_t writing_port = -1;
  };
  struct Stats {
    int64_t values = 0, errors = 0, writes = 0, write_errors = 0, sets_rejected = 0, sets_dropped = 0;
    int64_t published = 0, latency_sum_ms = 0, latency_max_ms = 0, latency_count = 0;
  };

  void OnEvent(const EngineEvent& event);
  bool LearnPorts(Device& device);
  void PublishState(Device& device, int32_t port, const std::string& text, int64_t read_ms, bool force);
  void PublishAvailability(const Device& device);
  void PublishDiscovery(const Device& device);
  void PublishError(const Device& device, int32_t port, int32_t number, const std::string& description,
                    const std::string& payload);
  void PublishStats();
  void StartNextSet(Device& device);
  void Set(Device& device, const std::string& port_text, const std::string& payload);

  Config config_;
  Engine& engine_;
  MqttClient& mqtt_;
  Topics topics_;
  std::vector<Device> devices_;
  std::map<std::string, size_t> by_name_;
  std::map<int32_t, size_t> by_id_;
  Stats stats_;
  int64_t stats_at_ = 0;
  int64_t learn_at_ = -1;  // when to ask again for port tables the devices were too busy to give
};

// Online and stale both show as available: a stale device still holds its last good values
// and nothing has failed; connecting and offline show as unavailable.
bool Available(DeviceState state);

}  // namespace vmio::gateway
