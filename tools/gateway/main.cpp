// vmio-gateway: every configured device's ports on an MQTT broker, on one thread.
#include <sys/resource.h>

#include <csignal>
#include <cstring>
#include <exception>
#include <iostream>
#include <string>

#include "bridge.h"
#include "config.h"
#include "event_loop.h"
#include "log.h"
#include "mqtt_client.h"
#include "vmio/engine.h"
#include "vmio/error.h"
#include "vmio/version.h"

namespace {

volatile std::sig_atomic_t g_stop = 0;

void OnSignal(int) { g_stop = 1; }

constexpr const char* kUsage =
    "usage: vmio-gateway CONFIG         run the gateway\n"
    "       vmio-gateway --check CONFIG check the configuration and exit\n"
    "       vmio-gateway --version\n";

// A connected device holds a descriptor: a site of a thousand needs more than the usual soft
// limit of 1,024, and the hard limit is ours to take.
void RaiseDescriptorLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
  }
}

int Run(const vmio::gateway::Config& config) {
  using namespace vmio::gateway;
  SetLogLevel(config.log_level);
  RaiseDescriptorLimit();
  vmio::Engine engine;
  const Topics topics(config.mqtt.prefix);
  Bridge* bridge_ptr = nullptr;
  MqttClient mqtt(
      config.mqtt, topics.BridgeState(), "offline",
      {[&] { bridge_ptr->Connected(); }, [&](const std::string& topic, const std::string& payload,
                                             bool retained) { bridge_ptr->Message(topic, payload, retained); }});
  Bridge bridge(config, engine, mqtt);
  bridge_ptr = &bridge;
  EventLoop loop(engine, mqtt, bridge);
  Log(LogLevel::kInfo, "watching " + std::to_string(config.devices.size()) + " devices, broker " + config.mqtt.host +
                           ":" + std::to_string(config.mqtt.port) + ", topics under " + config.mqtt.prefix + "/");
  struct sigaction action {};
  action.sa_handler = &OnSignal;  // no SA_RESTART: the wait returns at once
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  loop.Run(g_stop);
  // Leaving on purpose: the last will is for deaths only, so say it ourselves.
  mqtt.Publish(topics.BridgeState(), "offline", true, 1);
  mqtt.Close(2000);
  Log(LogLevel::kInfo, "stopped");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string first = argc > 1 ? argv[1] : "";
  if (argc == 2 && first == "--version") {
    std::cout << "vmio-gateway " << VMIO_VERSION_STRING << "\n";
    return 0;
  }
  if (argc == 2 && (first == "--help" || first == "-h")) {
    std::cout << kUsage;
    return 0;
  }
  const bool check = argc == 3 && first == "--check";
  if (!(argc == 2 && !first.starts_with("-")) && !check) {
    std::cerr << kUsage;
    return 2;
  }
  const std::string path = argv[argc - 1];
  vmio::gateway::Config config;
  try {
    config = vmio::gateway::LoadConfig(path);
  } catch (const vmio::gateway::ConfigError& e) {
    std::cerr << "vmio-gateway: " << e.what() << "\n";
    return 2;
  }
  if (check) {
    std::cout << path << ": " << config.devices.size() << " devices, broker " << config.mqtt.host << ":"
              << config.mqtt.port << "\n";
    return 0;
  }
  try {
    return Run(config);
  } catch (const vmio::AutomationError& e) {
    std::cerr << "vmio-gateway: " << e.Number() << " " << e.Description() << "\n";
  } catch (const std::exception& e) {
    std::cerr << "vmio-gateway: " << e.what() << "\n";
  }
  return 1;
}
