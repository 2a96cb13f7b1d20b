// The serial command round trip against the pseudo-terminal instrument, and the cost of
// letting timers run (what every reply-wait slice and host loop pays).
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "devices/rs232/rs232.h"
#include "serial_sim.h"
#include "vmio/events.h"

namespace {

void BM_CommandRoundTrip(benchmark::State& state) {
  vmio::sim::SerialSim instrument;
  instrument.SetReply("T?", {.text = "21.4\r"});
  vmio::RS232 rs232;
  rs232.AddCommand("T?\r");
  rs232.Connect(instrument.Path());
  for (auto _ : state) benchmark::DoNotOptimize(rs232.PortValue(0));
}
BENCHMARK(BM_CommandRoundTrip)->Unit(benchmark::kMicrosecond);

void BM_ListeningRead(benchmark::State& state) {
  vmio::sim::SerialSim instrument;
  vmio::RS232 rs232;
  rs232.AddCommand("\r\n");
  rs232.Connect(instrument.Path());
  instrument.Send("*B01:42.0\r\n");
  for (auto _ : state) benchmark::DoNotOptimize(rs232.PortValue(0));
}
BENCHMARK(BM_ListeningRead)->Unit(benchmark::kMicrosecond);

struct Idle : vmio::Callbackable {
  void Callback() override {}
};

void BM_RunPendingEventsNoneDue(benchmark::State& state) {
  auto target = std::make_shared<Idle>();
  std::vector<int32_t> ids;
  for (int64_t i = 0; i < state.range(0); ++i) ids.push_back(vmio::StartCallbackTimer(target, 100000));
  for (auto _ : state) vmio::RunPendingEvents();
  for (int32_t id : ids) vmio::StopCallbackTimer(id);
}
BENCHMARK(BM_RunPendingEventsNoneDue)->Arg(1)->Arg(10)->Arg(100);

}  // namespace
BENCHMARK_MAIN();
