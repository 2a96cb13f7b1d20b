#include "config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

namespace vmio::gateway {
namespace {

using ::testing::HasSubstr;

// The message a configuration is refused with.
std::string Refusal(const std::string& text) {
  try {
    ParseConfig(text, "/etc/vmio/gateway.yaml");
  } catch (const ConfigError& e) {
    return e.what();
  }
  return "accepted";
}

const std::string kMqtt = "mqtt:\n  host: 127.0.0.1\n";

TEST(GatewayConfig, TheSmallestConfigurationGetsItsDefaultsAndItsPasswordFromAFile) {
  const auto dir = std::filesystem::temp_directory_path() / ("vmio-gw-config-" + std::to_string(getpid()));
  std::filesystem::create_directories(dir);
  std::ofstream(dir / "cam.pass") << "s3:c@r#t\n";
  const std::string text =
      "mqtt:\n"
      "  host: 127.0.0.1\n"
      "  port: 1883\n"
      "  prefix: vmio\n"
      "  discovery_prefix: homeassistant\n"
      "devices:\n"
      "  - name: front-camera\n"
      "    class: axis\n"
      "    device: root@192.0.2.10\n"
      "    password_file: cam.pass            # beside the configuration\n"
      "    interval_ms: 1000\n"
      "  - name: relays\n"
      "    class: VMIO.ADAM\n"
      "    device: 192.0.2.11\n"
      "    ports: {0: Siren, 3: Gate}\n";
  const Config config = ParseConfig(text, (dir / "gateway.yaml").string());
  EXPECT_EQ(config.log_level, LogLevel::kInfo);
  EXPECT_EQ(config.mqtt.port, 1883);
  EXPECT_EQ(config.mqtt.client_id, "vmio-gateway");
  EXPECT_FALSE(config.mqtt.tls);
  ASSERT_EQ(config.devices.size(), 2u);
  EXPECT_EQ(config.devices[0].progid, "VMIO.Axis");
  // The password reaches the device string as written, '@', ':' and '#' included.
  EXPECT_EQ(config.devices[0].device, "root:s3:c@r#t@192.0.2.10");
  EXPECT_EQ(config.devices[1].device, "192.0.2.11");
  EXPECT_EQ(config.devices[1].interval_ms, 1000);
  EXPECT_EQ(config.devices[1].port_names, (std::map<int, std::string>{{0, "Siren"}, {3, "Gate"}}));

  setenv("VMIO_GW_TEST_PASSWORD", "from-env", 1);
  const Config env =
      ParseConfig(kMqtt +
                      "  user: gw\n  password_env: VMIO_GW_TEST_PASSWORD\n"
                      "  tls: {ca_file: /etc/ssl/ca.pem}\n"
                      "devices: [{name: a, class: axis, device: op@h, password_env: VMIO_GW_TEST_PASSWORD}]\n",
                  "g.yaml");
  EXPECT_EQ(env.mqtt.password, "from-env");
  EXPECT_EQ(env.mqtt.port, 8883);  // TLS's port unless given
  EXPECT_EQ(env.devices[0].device, "op:from-env@h");
  std::filesystem::remove_all(dir);
}

TEST(GatewayConfig, MistakesAreRefusedWithTheirLineAndReason) {
  const std::string device = "devices:\n  - name: cam\n    class: axis\n    device: 10.0.0.5\n";
  // Line 7 is the misspelt key, under the first device.
  EXPECT_EQ(Refusal(kMqtt + device + "    intervl_ms: 500\n"),
            "/etc/vmio/gateway.yaml:7: devices[0]: unknown key 'intervl_ms'");
  EXPECT_EQ(Refusal(kMqtt + device + "    interval_ms: 5\n"),
            "/etc/vmio/gateway.yaml:7: devices[0].interval_ms must be a whole number from 10 to 86400000, not '5'");
  EXPECT_EQ(Refusal(kMqtt + "  port: 70000\n" + device),
            "/etc/vmio/gateway.yaml:3: mqtt.port must be a whole number from 1 to 65535, not '70000'");
  EXPECT_EQ(Refusal(kMqtt + "devices:\n  - name: cam\n    class: toaster\n    device: x\n"),
            "/etc/vmio/gateway.yaml:5: devices[0].class: no class is named 'toaster' (vmio classes lists them)");
  EXPECT_THAT(Refusal(kMqtt + "devices:\n  - {name: cam, class: logitenum, device: x}\n"),
              HasSubstr(":4: devices[0].class: logitenum is not a device class"));
  EXPECT_THAT(Refusal(kMqtt + device + "  - {name: cam, class: adam, device: y}\n"),
              HasSubstr(":7: devices[1].name 'cam' is used twice"));
  EXPECT_THAT(Refusal(kMqtt + "devices:\n  - {name: a/b, class: adam, device: y}\n"),
              HasSubstr(":4: devices[0].name must be one topic level"));
  EXPECT_THAT(Refusal(kMqtt + "devices:\n  - {name: a, device: y}\n"), HasSubstr(":4: devices[0]: class is missing"));
  EXPECT_THAT(Refusal(kMqtt + "devices: []\n"), HasSubstr(":3: devices must list at least one device"));
  EXPECT_THAT(Refusal("mqtt: {host: h\n"), HasSubstr("gateway.yaml:2: "));  // YAML's own complaint
  EXPECT_THAT(Refusal(kMqtt + "  prefix: a/b\n" + device), HasSubstr(":3: mqtt.prefix must be one topic level"));
  EXPECT_THAT(Refusal("log_level: loud\n" + kMqtt + device), HasSubstr(":1: log_level must be error, warning"));
  EXPECT_THAT(Refusal(kMqtt + "  tls: {ca_file: ca.pem, cert_file: c.pem}\n" + device),
              HasSubstr(":3: mqtt.tls: cert_file and key_file go together"));
  // Credentials: never two sources, never a password without a user, the sources must exist.
  EXPECT_THAT(Refusal(kMqtt + "devices:\n  - {name: a, class: axis, device: 'r:pw@h', password_env: HOME}\n"),
              HasSubstr(":4: devices[0].device already holds a password"));
  EXPECT_THAT(Refusal(kMqtt + "devices:\n  - {name: a, class: axis, device: h, password_env: HOME}\n"),
              HasSubstr(":4: devices[0].device needs a user (user@host) for its password"));
  EXPECT_THAT(Refusal(kMqtt + "devices:\n  - {name: a, class: axis, device: r@h, password_env: VMIO_GW_UNSET}\n"),
              HasSubstr(":4: devices[0].password_env: the environment has no VMIO_GW_UNSET"));
  EXPECT_THAT(Refusal(kMqtt + "devices:\n  - {name: a, class: axis, device: r@h, password_file: /nonexistent}\n"),
              HasSubstr(":4: devices[0].password_file: cannot read '/nonexistent'"));
  EXPECT_THAT(Refusal(kMqtt + "  password_env: HOME\n" + device), HasSubstr(": mqtt: a password needs a user"));
}

}  // namespace
}  // namespace vmio::gateway
