// vmio-gateway under a whole site: one gateway process against an in-process fleet (the same
// simulators as `vmio-sim fleet`), a local mosquitto and a 1 s poll interval. Measures the time
// from an input switched at a simulated camera to its state message at a subscriber (median,
// 99th percentile, maximum), the gateway's CPU use over the measured period and its resident
// memory. Reports; never fails the build.
//
// usage: bench_gateway [DEVICES [DEAD [INTERVAL_MS [SECONDS]]]]   (default 1000 50 1000 60)
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <mutex>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "fleet_sim.h"
#include "mqtt_harness.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using vmio::gateway::testing::Broker;
using vmio::gateway::testing::Child;
using vmio::gateway::testing::Received;
using vmio::gateway::testing::Recorder;
using vmio::gateway::testing::TempDir;

// utime + stime of a process, in clock ticks.
long CpuTicks(pid_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string text((std::istreambuf_iterator<char>(stat)), {});
  std::istringstream fields(text.substr(text.rfind(')') + 2));
  std::string field;
  long ticks = 0;
  for (int i = 3; i <= 15 && fields >> field; ++i) {
    if (i == 14 || i == 15) ticks += std::stol(field);
  }
  return ticks;
}

// A /proc/PID/status line's kB, as MiB.
double StatusMiB(pid_t pid, const std::string& key) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(key + ":")) return std::stod(line.substr(key.size() + 1)) / 1024.0;
  }
  return -1;
}

std::string Name(size_t i) {
  std::string digits = std::to_string(i);
  return "d" + std::string(digits.size() < 4 ? 4 - digits.size() : 0, '0') + digits;
}

// The lines of a log that hold word, at most 40.
std::string Lines(std::istream& log, const std::string& word) {
  std::string found;
  int count = 0;
  for (std::string line; std::getline(log, line) && count < 40;) {
    if (line.find(word) != std::string::npos) found += line + "\n", ++count;
  }
  return found;
}

double Percentile(std::vector<double> v, double p) {
  if (v.empty()) return -1;
  std::sort(v.begin(), v.end());
  return v[std::min(v.size() - 1, static_cast<size_t>(p * static_cast<double>(v.size())))];
}

}  // namespace

int main(int argc, char** argv) {
  const int devices = argc > 1 ? std::stoi(argv[1]) : 1000;
  const int dead = argc > 2 ? std::stoi(argv[2]) : 50;
  const int interval_ms = argc > 3 ? std::stoi(argv[3]) : 1000;
  const int seconds = argc > 4 ? std::stoi(argv[4]) : 60;

  TempDir dir;
  Broker broker(dir);
  broker.Start();
  // What the subscriber waits for: device -> (payload, when it was switched).
  std::mutex mutex;
  std::map<std::string, std::pair<std::string, Clock::time_point>> pending;
  std::vector<double> latencies_ms;
  int online = 0;
  // Before the fleet takes thousands of descriptors: libmosquitto's own loop uses select().
  Recorder recorder(broker.port(), "vmio/#");
  recorder.SetListener([&](const Received& r) {
    std::lock_guard lock(mutex);
    const size_t slash = r.topic.find('/', 5);
    const std::string device = r.topic.substr(5, slash - 5);
    const std::string leaf = r.topic.substr(slash + 1);
    if (leaf == "availability" && r.payload == "online") ++online;
    if (leaf != "0/state") return;
    const auto it = pending.find(device);
    if (it == pending.end() || it->second.first != r.payload) return;
    latencies_ms.push_back(std::chrono::duration<double, std::milli>(r.at - it->second.second).count());
    pending.erase(it);
  });

  vmio::sim::FleetOptions options;
  options.devices = devices;
  options.adam = devices / 10;
  options.silent = dead / 2;
  options.unaccepting = dead - dead / 2;
  options.base = "127." + std::to_string(60 + getpid() % 150) + ".0.1";
  vmio::sim::FleetSim fleet(options);
  fleet.Start();

  std::string config = "log_level: info\nmqtt:\n  host: 127.0.0.1\n  port: " + std::to_string(broker.port()) +
                       "\n  stats_interval_ms: 5000\ndevices:\n";
  std::vector<size_t> cameras;  // live ones: their first input is switched
  for (size_t i = 0; i < fleet.Devices().size(); ++i) {
    const vmio::sim::FleetDevice& d = fleet.Devices()[i];
    config += "  - {name: " + Name(i) + ", class: " + d.progid + ", device: '" + d.device +
              "', interval_ms: " + std::to_string(interval_ms) + "}\n";
    if (d.make == vmio::sim::FleetMake::Axis && d.health == vmio::sim::FleetHealth::Live) cameras.push_back(i);
  }
  const std::string config_file = dir.Write("gateway.yaml", config);

  const auto started = Clock::now();
  Child gateway({VMIO_GATEWAY_PROGRAM, config_file}, dir.path() + "/gateway.log");
  const pid_t pid = gateway.Pid();
  const int live = devices - dead;
  while (Clock::now() - started < 120s) {
    {
      std::lock_guard lock(mutex);
      if (online >= live) break;
    }
    std::this_thread::sleep_for(50ms);
  }
  const double all_online_s = std::chrono::duration<double>(Clock::now() - started).count();
  {
    std::lock_guard lock(mutex);
    if (online < live) {
      std::ifstream log(dir.path() + "/gateway.log");
      std::printf("only %d of %d live devices came online; the gateway's log:\n%s\n", online, live,
                  Lines(log, "broker").c_str());
    }
  }
  std::this_thread::sleep_for(3s);  // the first values and discovery are out

  // One switch every 20 ms, each camera at most once in flight.
  std::mt19937 random(42);
  std::map<size_t, bool> state;
  int switched = 0;
  const long ticks_before = CpuTicks(pid);
  const auto measure_start = Clock::now();
  while (Clock::now() - measure_start < std::chrono::seconds(seconds)) {
    const size_t cam = cameras[random() % cameras.size()];
    {
      std::lock_guard lock(mutex);
      if (!pending.count(Name(cam))) {
        state[cam] = !state[cam];
        pending[Name(cam)] = {state[cam] ? "ON" : "OFF", Clock::now()};
        fleet.SetInput(static_cast<int>(cam), 1, state[cam]);
        ++switched;
      }
    }
    std::this_thread::sleep_for(20ms);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(2 * interval_ms));  // the last ones arrive
  const double measured_s = std::chrono::duration<double>(Clock::now() - measure_start).count();
  const double cpu = 100.0 * static_cast<double>(CpuTicks(pid) - ticks_before) /
                     static_cast<double>(sysconf(_SC_CLK_TCK)) / measured_s;
  const double rss = StatusMiB(pid, "VmRSS");
  const double hwm = StatusMiB(pid, "VmHWM");
  std::vector<double> samples;
  size_t lost = 0;
  {
    std::lock_guard lock(mutex);
    samples = latencies_ms;
    lost = pending.size();
  }
  std::printf("gateway: %d devices (%d dead: %d silent, %d unaccepting), %d ms interval, %d s measured\n", devices,
              dead, options.silent, options.unaccepting, interval_ms, seconds);
  std::printf("  all %d live devices online after %.1f s\n", live, all_online_s);
  std::printf("  input change -> MQTT message: %zu of %d switches seen, median %.0f ms, p99 %.0f ms, max %.0f ms\n",
              samples.size(), switched, Percentile(samples, 0.5), Percentile(samples, 0.99), Percentile(samples, 1.0));
  std::printf("  not seen within %d ms: %zu\n", 2 * interval_ms, lost);
  std::printf("  gateway CPU: %.1f%% of one core; resident memory %.1f MiB (peak %.1f MiB)\n", cpu, rss, hwm);
  gateway.Kill(15);
  return 0;
}
