#include "config.h"

#include <yaml-cpp/yaml.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "vmio/device_string.h"
#include "vmio/error.h"
#include "vmio/objects.h"

namespace vmio::gateway {
namespace {

// Where messages point: the file and the node's line.
class Reader {
 public:
  explicit Reader(std::string file) : file_(std::move(file)) {}

  [[noreturn]] void Fail(const YAML::Node& at, const std::string& reason) const {
    const YAML::Mark mark = at.Mark();
    const std::string line = mark.is_null() ? "" : std::to_string(mark.line + 1) + ":";
    throw ConfigError(file_ + ":" + line + " " + reason);
  }

  // A mapping whose keys are all among allowed (typos are the common mistake).
  void CheckMap(const YAML::Node& node, const std::string& what, std::initializer_list<std::string_view> allowed) {
    if (!node.IsMap()) Fail(node, what + " must be a mapping of keys to values");
    for (const auto& entry : node) {
      const std::string key = entry.first.Scalar();
      bool known = false;
      for (std::string_view a : allowed) known = known || a == key;
      if (!known) Fail(entry.first, what + ": unknown key '" + key + "'");
    }
  }

  std::string Text(const YAML::Node& node, const std::string& what) const {
    if (!node.IsScalar()) Fail(node, what + " must be a single value");
    return node.Scalar();
  }

  std::string NonEmptyText(const YAML::Node& node, const std::string& what) const {
    std::string text = Text(node, what);
    if (text.empty()) Fail(node, what + " must not be empty");
    return text;
  }

  int Number(const YAML::Node& node, const std::string& what, int low, int high) const {
    const std::string text = Text(node, what);
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || value < low || value > high) {
      Fail(node, what + " must be a whole number from " + std::to_string(low) + " to " + std::to_string(high) +
                     ", not '" + text + "'");
    }
    return static_cast<int>(value);
  }

  bool Flag(const YAML::Node& node, const std::string& what) const {
    const std::string text = Text(node, what);
    if (text == "true" || text == "yes" || text == "on") return true;
    if (text == "false" || text == "no" || text == "off") return false;
    Fail(node, what + " must be true or false, not '" + text + "'");
  }

  // A path as written, or relative to the configuration's folder.
  std::string Path(const YAML::Node& node, const std::string& what) const {
    std::filesystem::path path = NonEmptyText(node, what);
    if (path.is_relative()) path = std::filesystem::path(file_).parent_path() / path;
    return path.string();
  }

  // The secret named by NAME_file or NAME_env in map (at most one of them), if any.
  std::optional<std::string> Secret(const YAML::Node& map, const std::string& what) const {
    const YAML::Node file = map["password_file"];
    const YAML::Node env = map["password_env"];
    if (file && env) Fail(env, what + ": password_file and password_env exclude each other");
    if (file) {
      const std::string path = Path(file, what + ".password_file");
      std::ifstream in(path);
      std::string line;
      if (!in || !std::getline(in, line)) Fail(file, what + ".password_file: cannot read '" + path + "'");
      if (!line.empty() && line.back() == '\r') line.pop_back();
      return line;
    }
    if (env) {
      const std::string name = NonEmptyText(env, what + ".password_env");
      const char* value = std::getenv(name.c_str());
      if (!value) Fail(env, what + ".password_env: the environment has no " + name);
      return std::string(value);
    }
    return std::nullopt;
  }

 private:
  std::string file_;
};

// A topic segment that needs no escaping anywhere it is used (MQTT, discovery ids).
bool IsTopicSegment(std::string_view name) {
  if (name.empty()) return false;
  for (unsigned char c : name) {
    if (c <= ' ' || c == '/' || c == '+' || c == '#' || c >= 0x7f) return false;
  }
  return true;
}

MqttConfig ReadMqtt(Reader& r, const YAML::Node& node) {
  r.CheckMap(node, "mqtt",
             {"host", "port", "client_id", "user", "password_file", "password_env", "tls", "prefix", "discovery_prefix",
              "keepalive_s", "reconnect_max_ms", "stats_interval_ms"});
  MqttConfig m;
  if (node["host"]) m.host = r.NonEmptyText(node["host"], "mqtt.host");
  if (node["tls"]) {
    const YAML::Node tls = node["tls"];
    r.CheckMap(tls, "mqtt.tls", {"ca_file", "cert_file", "key_file", "insecure"});
    if (!tls["ca_file"]) r.Fail(tls, "mqtt.tls: ca_file is missing");
    TlsConfig t;
    t.ca_file = r.Path(tls["ca_file"], "mqtt.tls.ca_file");
    if (tls["cert_file"]) t.cert_file = r.Path(tls["cert_file"], "mqtt.tls.cert_file");
    if (tls["key_file"]) t.key_file = r.Path(tls["key_file"], "mqtt.tls.key_file");
    if (t.cert_file.empty() != t.key_file.empty()) r.Fail(tls, "mqtt.tls: cert_file and key_file go together");
    if (tls["insecure"]) t.insecure = r.Flag(tls["insecure"], "mqtt.tls.insecure");
    m.tls = t;
    m.port = 8883;
  }
  if (node["port"]) m.port = r.Number(node["port"], "mqtt.port", 1, 65535);
  if (node["client_id"]) m.client_id = r.NonEmptyText(node["client_id"], "mqtt.client_id");
  if (node["user"]) m.user = r.NonEmptyText(node["user"], "mqtt.user");
  m.password = r.Secret(node, "mqtt");
  if (m.password && m.user.empty()) r.Fail(node, "mqtt: a password needs a user");
  if (node["prefix"]) m.prefix = r.Text(node["prefix"], "mqtt.prefix");
  if (node["prefix"] && !IsTopicSegment(m.prefix)) {
    r.Fail(node["prefix"], "mqtt.prefix must be one topic level without blanks, '/', '+' or '#'");
  }
  if (node["discovery_prefix"]) m.discovery_prefix = r.Text(node["discovery_prefix"], "mqtt.discovery_prefix");
  if (!m.discovery_prefix.empty() && !IsTopicSegment(m.discovery_prefix)) {
    r.Fail(node["discovery_prefix"], "mqtt.discovery_prefix must be one topic level (or empty: no discovery)");
  }
  if (node["keepalive_s"]) m.keepalive_s = r.Number(node["keepalive_s"], "mqtt.keepalive_s", 5, 65535);
  if (node["reconnect_max_ms"]) {
    m.reconnect_max_ms = r.Number(node["reconnect_max_ms"], "mqtt.reconnect_max_ms", 500, 3600000);
  }
  if (node["stats_interval_ms"]) {
    m.stats_interval_ms = r.Number(node["stats_interval_ms"], "mqtt.stats_interval_ms", 100, 86400000);
  }
  return m;
}

DeviceConfig ReadDevice(Reader& r, const YAML::Node& node, const std::string& what) {
  r.CheckMap(node, what,
             {"name", "class", "device", "password_file", "password_env", "interval_ms", "max_queued_sets", "commands",
              "ports"});
  for (const char* key : {"name", "class", "device"}) {
    if (!node[key]) r.Fail(node, what + ": " + key + " is missing");
  }
  DeviceConfig d;
  d.name = r.Text(node["name"], what + ".name");
  if (!IsTopicSegment(d.name))
    r.Fail(node["name"], what + ".name must be one topic level without blanks, '/', '+' or '#'");
  const std::string cls = r.NonEmptyText(node["class"], what + ".class");
  const ClassInfo* info = FindClass(cls);
  if (!info) r.Fail(node["class"], what + ".class: no class is named '" + cls + "' (vmio classes lists them)");
  if (info->device_string.empty()) r.Fail(node["class"], what + ".class: " + cls + " is not a device class");
  d.progid = info->progid;
  d.device = r.NonEmptyText(node["device"], what + ".device");
  if (const std::optional<std::string> password = r.Secret(node, what)) {
    DeviceString parts = SplitDeviceString(d.device);
    if (parts.password) r.Fail(node["device"], what + ".device already holds a password");
    if (!parts.user) r.Fail(node["device"], what + ".device needs a user (user@host) for its password");
    parts.password = *password;
    try {
      d.device = JoinDeviceString(parts);
    } catch (const AutomationError& e) {
      r.Fail(node["device"], what + ".device: " + e.Description());
    }
  }
  if (node["interval_ms"]) d.interval_ms = r.Number(node["interval_ms"], what + ".interval_ms", 10, 86400000);
  if (node["max_queued_sets"]) {
    d.max_queued_sets = r.Number(node["max_queued_sets"], what + ".max_queued_sets", 1, 10000);
  }
  if (const YAML::Node commands = node["commands"]) {
    if (!commands.IsSequence()) r.Fail(commands, what + ".commands must be a list");
    for (const auto& c : commands) d.commands.push_back(r.NonEmptyText(c, what + ".commands"));
  }
  if (const YAML::Node ports = node["ports"]) {
    if (!ports.IsMap()) r.Fail(ports, what + ".ports must map port numbers (from 0) to names");
    for (const auto& p : ports) {
      const int index = r.Number(p.first, what + ".ports", 0, 65535);
      d.port_names[index] = r.NonEmptyText(p.second, what + ".ports." + std::to_string(index));
    }
  }
  return d;
}

}  // namespace

Config ParseConfig(const std::string& text, const std::string& file) {
  Reader r(file);
  YAML::Node root;
  try {
    root = YAML::Load(text);
  } catch (const YAML::Exception& e) {
    throw ConfigError(file + ":" + std::to_string(e.mark.line + 1) + ": " + e.msg);
  }
  if (!root.IsMap()) throw ConfigError(file + ": the configuration must be a mapping with mqtt and devices");
  r.CheckMap(root, "the configuration", {"log_level", "mqtt", "devices"});
  Config config;
  if (root["log_level"]) {
    const std::string word = r.Text(root["log_level"], "log_level");
    if (!ParseLogLevel(word, config.log_level)) {
      r.Fail(root["log_level"], "log_level must be error, warning, info or debug, not '" + word + "'");
    }
  }
  if (!root["mqtt"]) r.Fail(root, "mqtt is missing");
  config.mqtt = ReadMqtt(r, root["mqtt"]);
  const YAML::Node devices = root["devices"];
  if (!devices || !devices.IsSequence() || devices.size() == 0)
    r.Fail(devices ? devices : root, "devices must list at least one device");
  std::set<std::string> names;
  for (size_t i = 0; i < devices.size(); ++i) {
    const std::string what = "devices[" + std::to_string(i) + "]";
    DeviceConfig d = ReadDevice(r, devices[i], what);
    if (!names.insert(d.name).second) r.Fail(devices[i]["name"], what + ".name '" + d.name + "' is used twice");
    config.devices.push_back(std::move(d));
  }
  return config;
}

Config LoadConfig(const std::string& path) {
  std::ifstream in(path);
  if (!in) throw ConfigError(path + ": cannot read the file");
  std::ostringstream text;
  text << in.rdbuf();
  return ParseConfig(text.str(), path);
}

}  // namespace vmio::gateway
