#pragma once
// The gateway's configuration: the broker and the devices, read from a YAML file. Every
// mistake is refused with the file's line and the reason, before anything connects.
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "log.h"

namespace vmio::gateway {

// "front.yaml:7: devices[1]: unknown key 'intervl_ms'".
struct ConfigError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct TlsConfig {
  std::string ca_file;  // the broker's CA; TLS is on when this is set
  std::string cert_file;
  std::string key_file;   // the client certificate and its key, both or neither
  bool insecure = false;  // skip the host-name check (tests, private CAs without names)
};

struct MqttConfig {
  std::string host = "127.0.0.1";
  int port = 1883;
  std::string client_id = "vmio-gateway";
  std::string user;
  std::optional<std::string> password;  // from password_file or password_env, never inline
  std::optional<TlsConfig> tls;
  std::string prefix = "vmio";
  std::string discovery_prefix = "homeassistant";  // empty: no discovery
  int keepalive_s = 60;
  int reconnect_max_ms = 30000;  // broker reconnects start at 500 ms and double up to this
  int stats_interval_ms = 60000;
};

struct DeviceConfig {
  std::string name;    // topic segment and the device's name in discovery
  std::string progid;  // the class's programmatic name, "VMIO.Axis"
  std::string device;  // what Connect takes, password included
  int interval_ms = 1000;
  int max_queued_sets = 16;               // sets waiting beyond this drop the oldest
  std::vector<std::string> commands;      // added before connecting (classes with AddCommand)
  std::map<int, std::string> port_names;  // by 0-based port index, overriding the device's names
};

struct Config {
  LogLevel log_level = LogLevel::kInfo;
  MqttConfig mqtt;
  std::vector<DeviceConfig> devices;
};

// Reads and checks a configuration; file names the text in messages. getenv and reading the
// password files are the only things it touches outside the text.
Config ParseConfig(const std::string& text, const std::string& file);
Config LoadConfig(const std::string& path);

}  // namespace vmio::gateway
