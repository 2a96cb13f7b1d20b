// The Axis driver: a cached read, and the memory a connected object costs.
//
//   bench_axis --benchmark_counters_tabular=true
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "axis_sim.h"
#include "devices/http/axis.h"

namespace {

// PortValue served from the table (the 500 ms cache). Once every half second the cache runs
// out and one request goes to the device; "requests" counts them.
void BM_CachedPortValue(benchmark::State& state) {
  vmio::sim::AxisSim device;
  device.Start();
  vmio::Axis axis;
  axis.Connect(device.DeviceString());
  axis.PortValue(0);
  const int before = device.Server().RequestCount();
  for (auto _ : state) benchmark::DoNotOptimize(axis.PortValue(0));
  state.counters["requests"] = device.Server().RequestCount() - before;
}
BENCHMARK(BM_CachedPortValue);

long ResidentBytes() {
  long pages = 0, resident = 0;
  if (FILE* f = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
    std::fclose(f);
  }
  return resident * sysconf(_SC_PAGESIZE);
}

// The simulated device runs in a child process, so the resident memory measured here is the
// driver objects' alone. The child serves until the pipe to it closes.
struct ChildDevice {
  pid_t pid = -1;
  int keep_alive = -1;
  std::string device;

  ChildDevice() {
    int to_child[2], from_child[2];
    if (pipe(to_child) != 0 || pipe(from_child) != 0) return;
    pid = fork();
    if (pid == 0) {
      close(to_child[1]);
      close(from_child[0]);
      {
        vmio::sim::AxisSim sim;
        sim.Start();
        const std::string d = sim.DeviceString() + "\n";
        if (write(from_child[1], d.data(), d.size()) < 0) _exit(1);
        char c;
        while (read(to_child[0], &c, 1) > 0) {
        }
      }
      _exit(0);
    }
    close(to_child[0]);
    close(from_child[1]);
    keep_alive = to_child[1];
    char c;
    while (read(from_child[0], &c, 1) == 1 && c != '\n') device += c;
    close(from_child[0]);
  }
  ~ChildDevice() {
    if (keep_alive >= 0) close(keep_alive);
    if (pid > 0) waitpid(pid, nullptr, 0);
  }
};

void BM_ResidentMemoryPerConnectedObject(benchmark::State& state) {
  constexpr int kObjects = 1000;
  rlimit files{};
  getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = files.rlim_max;
  setrlimit(RLIMIT_NOFILE, &files);

  ChildDevice child;
  if (child.device.empty()) {
    state.SkipWithError("the simulated device did not start");
    return;
  }
  // One object first, so one-time library set-up is not counted.
  vmio::Axis warm_up;
  warm_up.Connect(child.device);
  for (auto _ : state) {
    const long before = ResidentBytes();
    std::vector<std::unique_ptr<vmio::Axis>> objects;
    objects.reserve(kObjects);
    for (int i = 0; i < kObjects; ++i) {
      objects.push_back(std::make_unique<vmio::Axis>());
      objects.back()->Connect(child.device);
    }
    state.counters["rss_bytes_per_object"] = static_cast<double>(ResidentBytes() - before) / kObjects;
  }
}
BENCHMARK(BM_ResidentMemoryPerConnectedObject)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
