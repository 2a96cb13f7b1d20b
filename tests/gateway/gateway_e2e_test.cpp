// The gateway as a user runs it: its own process, a real broker, simulated devices on loopback.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "fleet_sim.h"
#include "mqtt_harness.h"

namespace vmio::gateway::testing {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using Clock = std::chrono::steady_clock;

// Longer than the drivers' 500 ms read cache, so every read reaches the device.
constexpr int kIntervalMs = 600;
// What the loaded two-core test machine may add to a deadline.
constexpr auto kSlack = 250ms;

std::string ReadFile(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

// A block of loopback addresses of this process's own (another test program may run a fleet).
std::string Base(int block) {
  return "127." + std::to_string(40 + getpid() % 200) + "." + std::to_string(block) + ".1";
}

int64_t Ms(Clock::duration d) { return std::chrono::duration_cast<std::chrono::milliseconds>(d).count(); }

class GatewayEndToEnd : public ::testing::Test {
 protected:
  void SetUp() override {
    broker_.Start();
    // cam: a camera with two inputs and an output; io: an ADAM module; dead: never answers.
    sim::FleetOptions options;
    options.devices = 3;
    options.adam = 1;
    options.silent = 1;
    options.camera_inputs = 2;
    options.camera_outputs = 1;
    options.base = Base(10);
    fleet_ = std::make_unique<sim::FleetSim>(options);
    fleet_->Start();
    sim::FleetOptions doomed;
    doomed.devices = 1;
    doomed.base = Base(20);
    doomed_ = std::make_unique<sim::FleetSim>(doomed);
    doomed_->Start();

    std::string devices;
    for (size_t i = 0; i < fleet_->Devices().size(); ++i) {
      const sim::FleetDevice& d = fleet_->Devices()[i];
      const std::string name = d.health != sim::FleetHealth::Live ? "dead"
                               : d.make == sim::FleetMake::Adam   ? "io"
                                                                  : "cam";
      index_[name] = static_cast<int>(i);
      devices += "  - {name: " + name + ", class: " + d.progid + ", device: '" + d.device +
                 "', interval_ms: " + std::to_string(kIntervalMs) + ", max_queued_sets: 4}\n";
    }
    devices += "  - {name: doomed, class: axis, device: '" + doomed_->Devices()[0].device +
               "', interval_ms: " + std::to_string(kIntervalMs) + "}\n";
    config_ = dir_.Write("gateway.yaml",
                         "log_level: debug\nmqtt:\n  host: 127.0.0.1\n  port: " + std::to_string(broker_.port()) +
                             "\n  reconnect_max_ms: 1000\n  stats_interval_ms: 200\ndevices:\n" + devices);
    recorder_ = std::make_unique<Recorder>(broker_.port());
    gateway_ = Child({VMIO_GATEWAY_PROGRAM, config_}, dir_.path() + "/gateway.log");
    // Everyone live has published its ports' states and discovery.
    for (const char* name : {"cam", "io", "doomed"}) {
      ASSERT_TRUE(recorder_->WaitFor("vmio/" + std::string(name) + "/availability", "online", 10s)) << name;
    }
    ASSERT_TRUE(recorder_->WaitFor([](const Received& r) { return r.topic == "vmio/cam/0/state"; }, 5s));
    for (const char* component : {"binary_sensor", "switch"}) {
      ASSERT_TRUE(recorder_->WaitFor(
          [&](const Received& r) {
            return r.topic.starts_with("homeassistant/" + std::string(component) + "/vmio_cam/");
          },
          1s));
    }
  }

  void TearDown() override {
    const int status = gateway_.Kill(SIGTERM);
    EXPECT_EQ(status, 0) << "the gateway did not stop cleanly on SIGTERM";
    if (HasFailure()) std::cerr << "gateway log:\n" << ReadFile(dir_.path() + "/gateway.log");
  }

  // The camera's port numbers by kind, from its discovery messages.
  std::map<std::string, std::vector<int>> CameraPorts() {
    std::map<std::string, std::vector<int>> ports;
    for (const Received& r : recorder_->Since(0)) {
      const std::string prefix = "homeassistant/";
      if (!r.topic.starts_with(prefix) || r.topic.find("/vmio_cam/port") == std::string::npos) continue;
      const std::string component = r.topic.substr(prefix.size(), r.topic.find('/', prefix.size()) - prefix.size());
      const int port = std::stoi(r.topic.substr(r.topic.find("/port") + 5));
      if (std::find(ports[component].begin(), ports[component].end(), port) == ports[component].end()) {
        ports[component].push_back(port);
      }
    }
    for (auto& [_, list] : ports) std::sort(list.begin(), list.end());
    return ports;
  }

  // The last value of each retained state topic seen so far.
  std::map<std::string, std::string> States() {
    std::map<std::string, std::string> states;
    for (const Received& r : recorder_->Since(0)) {
      if (r.topic.ends_with("/state") && !r.topic.starts_with("vmio/bridge")) states[r.topic] = r.payload;
    }
    return states;
  }

  json LastStats() {
    json stats;
    for (const Received& r : recorder_->Since(0)) {
      if (r.topic == "vmio/bridge/stats") stats = json::parse(r.payload);
    }
    return stats;
  }

  TempDir dir_;
  Broker broker_{dir_};
  std::unique_ptr<sim::FleetSim> fleet_;
  std::unique_ptr<sim::FleetSim> doomed_;
  std::map<std::string, int> index_;
  std::string config_;
  std::unique_ptr<Recorder> recorder_;
  Child gateway_;
};

TEST_F(GatewayEndToEnd, InputsOutputsAvailabilityAndDiscoveryFollowTheDevices) {
  EXPECT_TRUE(recorder_->WaitFor("vmio/bridge/state", "online", 1s));
  EXPECT_TRUE(recorder_->WaitFor("vmio/dead/availability", "offline", 1s));
  const auto ports = CameraPorts();
  ASSERT_EQ(ports.at("binary_sensor").size(), 2u);
  ASSERT_EQ(ports.at("switch").size(), 1u);
  for (const Received& r : recorder_->Since(0)) {
    if (!r.topic.starts_with("homeassistant/")) continue;
    const json config = json::parse(r.payload);
    EXPECT_FALSE(config["unique_id"].get<std::string>().empty());
    EXPECT_TRUE(config["device"].contains("identifiers"));
    EXPECT_EQ(config["origin"]["name"], "vmio-gateway");
  }
  EXPECT_EQ(States().at("vmio/cam/" + std::to_string(ports.at("binary_sensor")[0]) + "/state"), "OFF");

  // An input switched at the device shows within one poll interval.
  const int cam = index_.at("cam");
  const std::string input = "vmio/cam/" + std::to_string(ports.at("binary_sensor")[1]) + "/state";
  size_t from = recorder_->Count();
  auto switched = Clock::now();
  fleet_->SetInput(cam, 2, true);
  auto seen = recorder_->WaitFor(input, "ON", 3s, from);
  ASSERT_TRUE(seen);
  EXPECT_LE(Ms(seen->at - switched), kIntervalMs + Ms(kSlack));

  // A set switches the output at the device and is answered by the new state.
  const std::string output = "vmio/cam/" + std::to_string(ports.at("switch")[0]);
  from = recorder_->Count();
  ASSERT_TRUE(recorder_->Publish(output + "/set", "ON"));
  ASSERT_TRUE(recorder_->WaitFor(output + "/state", "ON", 3s, from));
  EXPECT_EQ(fleet_->Output(cam, 1), 1);

  // A late subscriber gets every state retained.
  Recorder late(broker_.port());
  ASSERT_TRUE(late.WaitFor([&](const Received& r) { return r.topic == input && r.payload == "ON" && r.retained; }, 3s));
  ASSERT_TRUE(late.WaitFor("vmio/bridge/state", "online", 1s));
  ASSERT_TRUE(late.WaitFor(
      [](const Received& r) { return r.topic.starts_with("homeassistant/switch/vmio_cam/") && r.retained; }, 1s));

  // The module's ports publish too.
  EXPECT_TRUE(
      std::any_of(States().begin(), States().end(), [](const auto& s) { return s.first.starts_with("vmio/io/"); }));
}

TEST_F(GatewayEndToEnd, ADeviceThatDiesGoesOfflineWithinTwoIntervalsWhileTheOthersKeepPublishing) {
  const auto ports = CameraPorts();
  const std::string input = "vmio/cam/" + std::to_string(ports.at("binary_sensor")[0]) + "/state";
  const size_t from = recorder_->Count();
  const auto died = Clock::now();
  doomed_.reset();  // its sockets closed: refused from now on
  fleet_->SetInput(index_.at("cam"), 1, true);
  const auto seen = recorder_->WaitFor(input, "ON", 3s, from);
  const auto offline = recorder_->WaitFor("vmio/doomed/availability", "offline", 5s, from);
  ASSERT_TRUE(seen && offline);
  EXPECT_LE(Ms(seen->at - died), kIntervalMs + Ms(kSlack));
  EXPECT_LE(Ms(offline->at - died), 2 * kIntervalMs + Ms(kSlack));
  // And the gateway told why.
  EXPECT_NE(ReadFile(dir_.path() + "/gateway.log").find("doomed: offline"), std::string::npos);
}

TEST_F(GatewayEndToEnd, EveryStateComesBackAfterABrokerRestartAndWhenHomeAssistantAnnouncesItself) {
  fleet_->SetInput(index_.at("cam"), 1, true);
  const auto ports = CameraPorts();
  ASSERT_TRUE(recorder_->WaitFor("vmio/cam/" + std::to_string(ports.at("binary_sensor")[0]) + "/state", "ON", 3s));
  std::this_thread::sleep_for(std::chrono::milliseconds(kIntervalMs));  // the module's states too
  const std::map<std::string, std::string> before = States();
  ASSERT_GE(before.size(), 4u);

  auto all_again = [&](size_t from, const char* when) {
    for (const auto& [topic, payload] : before) {
      if (topic.starts_with("vmio/dead/")) continue;
      EXPECT_TRUE(recorder_->WaitFor(topic, payload, 5s, from)) << topic << " " << when;
    }
    EXPECT_TRUE(recorder_->WaitFor(
        [](const Received& r) { return r.topic.starts_with("homeassistant/switch/vmio_cam/"); }, 5s, from))
        << when;
  };

  broker_.Kill();
  const size_t from = recorder_->Count();
  std::this_thread::sleep_for(300ms);
  broker_.Start();  // forgot everything: no persistence
  ASSERT_TRUE(recorder_->WaitFor("vmio/bridge/state", "online", 10s, from));
  all_again(from, "after the broker restart");
  EXPECT_NE(ReadFile(dir_.path() + "/gateway.log").find("broker: reconnected"), std::string::npos);

  const size_t announced = recorder_->Count();
  ASSERT_TRUE(recorder_->Publish("homeassistant/status", "online"));
  all_again(announced, "after homeassistant/status online");
}

TEST_F(GatewayEndToEnd, BadSetsAreAnsweredOnTheErrorTopicAndChangeNothingAndAFloodIsBounded) {
  const auto ports = CameraPorts();
  const int cam = index_.at("cam");
  const std::string output = "vmio/cam/" + std::to_string(ports.at("switch")[0]);
  const std::string input = "vmio/cam/" + std::to_string(ports.at("binary_sensor")[0]);
  auto error_number = [&](const std::string& topic, size_t from) {
    const auto e = recorder_->WaitFor([&](const Received& r) { return r.topic == topic; }, 3s, from);
    return e ? json::parse(e->payload)["number"].get<int>() : -1;
  };

  size_t from = recorder_->Count();
  ASSERT_TRUE(recorder_->Publish(output + "/set", "maybe"));
  EXPECT_EQ(error_number(output + "/error", from), 13);
  from = recorder_->Count();
  ASSERT_TRUE(recorder_->Publish("vmio/cam/99/set", "ON"));
  EXPECT_EQ(error_number("vmio/cam/99/error", from), 9);
  from = recorder_->Count();
  ASSERT_TRUE(recorder_->Publish(input + "/set", "ON"));
  EXPECT_EQ(error_number(input + "/error", from), 45004);  // the driver's own refusal
  // A retained command, which the broker hands over at every (re)subscription, is never obeyed:
  // it would switch the output again at every start.
  EXPECT_EQ(gateway_.Kill(SIGTERM), 0);
  from = recorder_->Count();
  ASSERT_TRUE(recorder_->Publish(output + "/set", "ON", true));
  ASSERT_TRUE(recorder_->WaitFor(output + "/set", "ON", 3s, from));  // the broker holds it
  from = recorder_->Count();
  gateway_ = Child({VMIO_GATEWAY_PROGRAM, config_}, dir_.path() + "/gateway.log");
  ASSERT_TRUE(recorder_->WaitFor("vmio/cam/availability", "online", 5s, from));
  std::this_thread::sleep_for(std::chrono::milliseconds(2 * kIntervalMs));
  EXPECT_NE(ReadFile(dir_.path() + "/gateway.log").find("ignored retained set on " + output + "/set"),
            std::string::npos);
  EXPECT_EQ(fleet_->Output(cam, 1), 0);
  EXPECT_EQ(fleet_->Input(cam, 1), 0);
  for (const Received& r : recorder_->Since(0)) {
    EXPECT_FALSE(r.topic == output + "/state" && r.payload == "ON") << "a refused set changed the output";
    EXPECT_FALSE(r.topic == input + "/state" && r.payload == "ON") << "a write to an input changed it";
  }

  from = recorder_->Count();
  ASSERT_TRUE(recorder_->Publish(output + "/set", "", true));  // deletes the retained command
  ASSERT_TRUE(recorder_->WaitFor([&](const Received& r) { return r.topic == output + "/error"; }, 3s, from));

  // A flood: at most four wait per device, the oldest dropped and counted; the last one wins.
  constexpr int kSets = 200;
  for (int i = 0; i < kSets; ++i) ASSERT_TRUE(recorder_->Publish(output + "/set", i % 2 ? "ON" : "OFF"));
  ASSERT_TRUE(recorder_->WaitFor(
      [&](const Received& r) {
        if (r.topic != "vmio/bridge/stats") return false;
        const json s = json::parse(r.payload);
        return s["sets_dropped"].get<int>() + s["writes"].get<int>() + s["write_errors"].get<int>() >= kSets;
      },
      20s));
  const json stats = LastStats();
  EXPECT_GT(stats["sets_dropped"].get<int>(), 0);
  EXPECT_LT(stats["writes"].get<int>(), kSets);
  EXPECT_EQ(fleet_->Output(cam, 1), 1);
}

TEST(GatewayCommand, CheckValidatesWithoutConnectingAndRefusesMistakesWithTheirLine) {
  TempDir dir;
  const std::string good =
      dir.Write("good.yaml", "mqtt: {host: 192.0.2.1}\ndevices:\n  - {name: a, class: adam, device: 192.0.2.2}\n");
  const std::string bad = dir.Write("bad.yaml", "mqtt: {host: 192.0.2.1}\ndevices:\n  - {name: a, class: adam}\n");
  Child check_good({VMIO_GATEWAY_PROGRAM, "--check", good}, dir.path() + "/good.log");
  EXPECT_EQ(check_good.Wait(), 0);
  EXPECT_EQ(ReadFile(dir.path() + "/good.log"), good + ": 1 devices, broker 192.0.2.1:1883\n");
  Child check_bad({VMIO_GATEWAY_PROGRAM, "--check", bad}, dir.path() + "/bad.log");
  EXPECT_EQ(check_bad.Wait(), 2);
  EXPECT_EQ(ReadFile(dir.path() + "/bad.log"), "vmio-gateway: " + bad + ":3: devices[0]: device is missing\n");
  // The daemon refuses the same file the same way before it connects anywhere.
  Child run_bad({VMIO_GATEWAY_PROGRAM, bad}, dir.path() + "/run.log");
  EXPECT_EQ(run_bad.Wait(), 2);
}

}  // namespace
}  // namespace vmio::gateway::testing
