#pragma once
// Home Assistant's MQTT discovery: one retained config message per port, all of a device's
// ports grouped under one device entry, each entity available only while both the gateway
// and its device are.
#include <cstdint>
#include <string>
#include <vector>

#include "config.h"
#include "topics.h"

namespace vmio::gateway {

// What the gateway learns of a port once its device is connected.
struct PortInfo {
  int32_t direction = 0;  // an IOPortDirection
  int32_t type = 0;       // a variant type code
  std::string name;
};

struct MqttMessage {
  std::string topic;
  std::string payload;
};

// The modes a door's port is written with; its reads show all but "Open".
inline const std::vector<std::string> kDoorCommands = {"Open", "Unlocked", "Normal", "Secure", "Locked"};

// binary_sensor (Boolean input), switch (writable Boolean), select (a door), sensor (the rest).
std::string Component(const std::string& progid, const PortInfo& port);

// The config messages of a device's ports (empty when discovery_prefix is empty).
std::vector<MqttMessage> DiscoveryMessages(const MqttConfig& mqtt, const DeviceConfig& device,
                                           const std::vector<PortInfo>& ports);

}  // namespace vmio::gateway
