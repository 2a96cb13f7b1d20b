#include "discovery.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "vmio/io_device.h"

namespace vmio::gateway {
namespace {

using nlohmann::json;

TEST(GatewayDiscovery, EachPortBecomesTheEntityItsKindCallsForUnderOneDevice) {
  MqttConfig mqtt;
  DeviceConfig camera;
  camera.name = "front-camera";
  camera.progid = "VMIO.Axis";
  const std::vector<PortInfo> ports = {{IOInput, vtBool, "Door \"A\""},
                                       {IOOutput, vtBool, "Siren"},
                                       {IOBidirectional, vtString, "Line"},
                                       {IOInput, vtR8, "Temperature"}};
  const std::vector<MqttMessage> messages = DiscoveryMessages(mqtt, camera, ports);
  ASSERT_EQ(messages.size(), 4u);
  const char* components[] = {"binary_sensor", "switch", "sensor", "sensor"};
  std::set<std::string> unique_ids;
  for (size_t i = 0; i < messages.size(); ++i) {
    EXPECT_EQ(messages[i].topic, "homeassistant/" + std::string(components[i]) + "/vmio_front-camera/port" +
                                     std::to_string(i) + "/config");
    const json config = json::parse(messages[i].payload);
    EXPECT_EQ(config["name"], ports[i].name);
    EXPECT_EQ(config["state_topic"], "vmio/front-camera/" + std::to_string(i) + "/state");
    unique_ids.insert(config["unique_id"].get<std::string>());
    EXPECT_EQ(config["device"]["identifiers"], json::array({"vmio_front-camera"}));
    EXPECT_EQ(config["device"]["name"], "front-camera");
    EXPECT_EQ(config["origin"]["name"], "vmio-gateway");
    // Unavailable when either the gateway or the device is.
    EXPECT_EQ(config["availability_mode"], "all");
    EXPECT_EQ(config["availability"], json::parse(R"([{"topic":"vmio/bridge/state"},
                                                     {"topic":"vmio/front-camera/availability"}])"));
    EXPECT_EQ(config.contains("command_topic"), i == 1) << i;
  }
  EXPECT_EQ(unique_ids.size(), 4u);
  EXPECT_EQ(json::parse(messages[1].payload)["command_topic"], "vmio/front-camera/1/set");
  EXPECT_EQ(json::parse(messages[0].payload)["payload_on"], "ON");

  // A door's mode is chosen from its commands; a door only read stays a sensor.
  DeviceConfig door;
  door.name = "doors";
  door.progid = "VMIO.AxxessIDDoor";
  const auto doors = DiscoveryMessages(mqtt, door, {{IOBidirectional, vtString, "Lobby"}, {IOInput, vtString, "Back"}});
  EXPECT_EQ(doors[0].topic, "homeassistant/select/vmio_doors/port0/config");
  EXPECT_EQ(json::parse(doors[0].payload)["options"], json::array({"Open", "Unlocked", "Normal", "Secure", "Locked"}));
  EXPECT_EQ(doors[1].topic, "homeassistant/sensor/vmio_doors/port1/config");

  mqtt.discovery_prefix.clear();
  EXPECT_TRUE(DiscoveryMessages(mqtt, camera, ports).empty());
}

}  // namespace
}  // namespace vmio::gateway
