#include "discovery.h"

#include "json.h"
#include "vmio/io_device.h"
#include "vmio/variant.h"
#include "vmio/version.h"

namespace vmio::gateway {
namespace {

using cli::JsonObject;
using cli::JsonString;

bool Writable(const PortInfo& port) { return port.direction == IOOutput || port.direction == IOBidirectional; }

}  // namespace

std::string Component(const std::string& progid, const PortInfo& port) {
  if (port.type == vtBool) return Writable(port) ? "switch" : "binary_sensor";
  if (progid == "VMIO.AxxessIDDoor" && Writable(port)) return "select";
  return "sensor";
}

std::vector<MqttMessage> DiscoveryMessages(const MqttConfig& mqtt, const DeviceConfig& device,
                                           const std::vector<PortInfo>& ports) {
  std::vector<MqttMessage> messages;
  if (mqtt.discovery_prefix.empty()) return messages;
  const Topics topics(mqtt.prefix);
  // The prefix is part of every id, so two gateways with their own prefixes never collide.
  const std::string node_id = mqtt.prefix + "_" + device.name;
  const std::string device_block = JsonObject()
                                       .Add("identifiers", "[" + JsonString(node_id) + "]")
                                       .AddString("name", device.name)
                                       .AddString("manufacturer", "VMIO")
                                       .AddString("model", device.progid)
                                       .Text();
  const std::string origin =
      JsonObject().AddString("name", "vmio-gateway").AddString("sw_version", VMIO_VERSION_STRING).Text();
  const std::string availability = "[" + JsonObject().AddString("topic", topics.BridgeState()).Text() + "," +
                                   JsonObject().AddString("topic", topics.Availability(device.name)).Text() + "]";
  for (size_t i = 0; i < ports.size(); ++i) {
    const PortInfo& port = ports[i];
    const auto index = static_cast<int32_t>(i);
    const std::string component = Component(device.progid, port);
    const std::string object_id = "port" + std::to_string(i);
    JsonObject config;
    config.AddString("name", port.name)
        .AddString("unique_id", node_id + "_" + object_id)
        .AddString("object_id", node_id + "_" + object_id)
        .AddString("state_topic", topics.State(device.name, index))
        .Add("availability", availability)
        .AddString("availability_mode", "all")
        .Add("device", device_block)
        .Add("origin", origin);
    if (component == "switch" || component == "binary_sensor") {
      config.AddString("payload_on", "ON").AddString("payload_off", "OFF");
    }
    if (component == "switch" || component == "select") {
      config.AddString("command_topic", topics.Set(device.name, index));
    }
    if (component == "select") {
      std::string options = "[";
      for (const std::string& mode : kDoorCommands) options += (options.size() > 1 ? "," : "") + JsonString(mode);
      config.Add("options", options + "]");
    }
    messages.push_back(
        {mqtt.discovery_prefix + "/" + component + "/" + node_id + "/" + object_id + "/config", config.Text()});
  }
  return messages;
}

}  // namespace vmio::gateway
