// The Vivotek, ACTi and StarDot drivers: a switched output (one request on a kept connection,
// every time) and a cached read (from the table; one request per half second).
//
//   bench_cgi_cameras --benchmark_counters_tabular=true
#include <benchmark/benchmark.h>

#include "acti_sim.h"
#include "devices/http/acti.h"
#include "devices/http/stardot.h"
#include "devices/http/vivotek.h"
#include "stardot_sim.h"
#include "vivotek_sim.h"

namespace {

template <class Driver, class Sim>
void Write(benchmark::State& state, int32_t output) {
  Sim device;
  device.Start();
  Driver driver;
  driver.Connect(device.DeviceString());
  const int before = device.Server().RequestCount();
  bool on = false;
  for (auto _ : state) driver.PortValue(output, vmio::Variant(on = !on));
  state.counters["requests"] =
      benchmark::Counter(device.Server().RequestCount() - before, benchmark::Counter::kAvgIterations);
  state.counters["connections"] = device.Server().ConnectionCount();
}

template <class Driver, class Sim>
void CachedRead(benchmark::State& state, int32_t port) {
  Sim device;
  device.Start();
  Driver driver;
  driver.Connect(device.DeviceString());
  driver.PortValue(port);
  const int before = device.Server().RequestCount();
  for (auto _ : state) benchmark::DoNotOptimize(driver.PortValue(port));
  state.counters["requests"] = device.Server().RequestCount() - before;
}

void BM_VivotekWrite(benchmark::State& s) { Write<vmio::Vivotek, vmio::sim::VivotekSim>(s, 2); }
void BM_ACTiWrite(benchmark::State& s) { Write<vmio::ACTi, vmio::sim::ACTiSim>(s, 2); }
void BM_StarDotWrite(benchmark::State& s) { Write<vmio::StarDot, vmio::sim::StarDotSim>(s, 0); }
void BM_VivotekCachedRead(benchmark::State& s) { CachedRead<vmio::Vivotek, vmio::sim::VivotekSim>(s, 0); }
void BM_ACTiCachedRead(benchmark::State& s) { CachedRead<vmio::ACTi, vmio::sim::ACTiSim>(s, 0); }
void BM_StarDotCachedRead(benchmark::State& s) { CachedRead<vmio::StarDot, vmio::sim::StarDotSim>(s, 1); }
BENCHMARK(BM_VivotekWrite);
BENCHMARK(BM_ACTiWrite);
BENCHMARK(BM_StarDotWrite);
BENCHMARK(BM_VivotekCachedRead);
BENCHMARK(BM_ACTiCachedRead);
BENCHMARK(BM_StarDotCachedRead);

}  // namespace

BENCHMARK_MAIN();
