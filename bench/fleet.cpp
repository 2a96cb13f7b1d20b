// A whole site refreshed from one host thread, against `vmio-sim fleet` in-process: every
// camera's inputs read once per iteration. The floor is libcurl's multi interface fetching the
// same check CGI from every camera at once on one thread; the blocking path is the library's
// Axis objects read one after another, as a host without the engine does.
//
// Arguments: cameras, the fleet's reply delay in ms, dead cameras (half silent, half never
// accepting; the floor only: a blocking host with dead cameras waits out each one in turn).
// Counters: live_ms, when the last live camera's answer was in (the floor's whole sweep waits
// for the dead ones' time-outs on top).
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "fleet_sim.h"
#include "vmio/io_device.h"
#include "vmio/objects.h"

namespace {

using Clock = std::chrono::steady_clock;

std::unique_ptr<vmio::sim::FleetSim> StartFleet(const benchmark::State& state) {
  vmio::sim::FleetOptions o;
  o.devices = static_cast<int>(state.range(0));
  o.reply_delay_ms = static_cast<int>(state.range(1));
  o.silent = static_cast<int>(state.range(2)) / 2;
  o.unaccepting = static_cast<int>(state.range(2)) - o.silent;
  o.base = "127." + std::to_string(60 + getpid() % 150) + ".0.1";
  auto fleet = std::make_unique<vmio::sim::FleetSim>(o);
  fleet->Start();
  return fleet;
}

size_t Discard(char*, size_t size, size_t n, void*) { return size * n; }

double Ms(Clock::duration d) { return std::chrono::duration<double, std::milli>(d).count(); }

void BM_FloorCurlMulti(benchmark::State& state) {
  const auto fleet = StartFleet(state);
  CURLM* multi = curl_multi_init();
  std::vector<CURL*> easies;
  for (const auto& d : fleet->Devices()) {
    CURL* easy = curl_easy_init();
    const std::string url = "http://" + d.device + "/axis-cgi/io/port.cgi?check=1,2,3,4";
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Discard);
    // The library's own limits: 10 s to connect, 5 s of silence, 30 s in all.
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, 10000L);
    curl_easy_setopt(easy, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(easy, CURLOPT_LOW_SPEED_TIME, 5L);
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, 30000L);
    curl_easy_setopt(easy, CURLOPT_PRIVATE, d.health == vmio::sim::FleetHealth::Live ? easy : nullptr);
    easies.push_back(easy);
  }
  double live_ms = 0;
  for (auto _ : state) {
    const auto start = Clock::now();
    for (CURL* easy : easies) curl_multi_add_handle(multi, easy);
    int running = 1;
    int live_left = 0;
    for (const auto& d : fleet->Devices()) live_left += d.health == vmio::sim::FleetHealth::Live;
    while (running) {
      curl_multi_perform(multi, &running);
      int queued = 0;
      while (CURLMsg* m = curl_multi_info_read(multi, &queued)) {
        if (m->msg != CURLMSG_DONE) continue;
        void* live = nullptr;
        curl_easy_getinfo(m->easy_handle, CURLINFO_PRIVATE, &live);
        if (live && m->data.result != CURLE_OK) state.SkipWithError("a live camera failed");
        if (live && --live_left == 0) live_ms += Ms(Clock::now() - start);
      }
      if (running) curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
    }
    for (CURL* easy : easies) curl_multi_remove_handle(multi, easy);
  }
  state.counters["live_ms"] = live_ms / static_cast<double>(state.iterations());
  for (CURL* easy : easies) curl_easy_cleanup(easy);
  curl_multi_cleanup(multi);
}

void BM_BlockingObjects(benchmark::State& state) {
  const auto fleet = StartFleet(state);
  std::vector<std::shared_ptr<vmio::IODevice>> cameras;
  for (const auto& d : fleet->Devices()) {
    cameras.push_back(std::dynamic_pointer_cast<vmio::IODevice>(vmio::CreateObject(d.progid)));
    cameras.back()->Connect(d.device);
  }
  double live_ms = 0;
  for (auto _ : state) {
    state.PauseTiming();
    std::this_thread::sleep_for(std::chrono::milliseconds(510));  // every state cache is stale again
    state.ResumeTiming();
    const auto start = Clock::now();
    for (const auto& camera : cameras) benchmark::DoNotOptimize(camera->PortValue(0));
    live_ms += Ms(Clock::now() - start);
  }
  state.counters["live_ms"] = live_ms / static_cast<double>(state.iterations());
}

// 1,000 cameras answering at once and after 20 ms; 100 with 5 dead (the dead cost seconds).
BENCHMARK(BM_FloorCurlMulti)
    ->Args({1000, 0, 0})
    ->Args({1000, 20, 0})
    ->Args({105, 20, 5})
    ->Args({1000, 20, 50})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(3);
BENCHMARK(BM_BlockingObjects)
    ->Args({1000, 0, 0})
    ->Args({100, 20, 0})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
