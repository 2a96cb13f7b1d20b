// A whole site refreshed from one host thread, against `vmio-sim fleet` in-process: every
// camera's inputs read once per iteration. The floor is libcurl's multi interface fetching the
// same check CGI from every camera at once on one thread; the blocking path is the library's
// Axis objects read one after another, as a host without the engine does.
//
// Arguments: cameras, the fleet's reply delay in ms, dead cameras (half silent, half never
// accepting; the floor only: a blocking host with dead cameras waits out each one in turn).
// Counters: live_ms, when the last live camera's answer was in (the floor's whole sweep waits
// for the dead ones' time-outs on top); p99_ms, the 99th percentile over live cameras of the
// time from the sweep's start to that camera's answer.
//
// The engine rows start every device's exchange at once on one loop, as the floor starts every
// transfer: the same driver code the blocking members run, interleaved. Connect rows make new
// objects (new connections) each iteration; their floor fetches what an Axis Connect asks (two
// parameter lists, one after the other on one connection). The public Engine row is the time
// from adding every device to having every live device's values.
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "engine/async_device.h"
#include "fleet_sim.h"
#include "vmio/engine.h"
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

bool Live(const vmio::sim::FleetDevice& d) { return d.health == vmio::sim::FleetHealth::Live; }

double P99(std::vector<double> ms) {
  if (ms.empty()) return 0;
  std::sort(ms.begin(), ms.end());
  return ms[std::min(ms.size() - 1, ms.size() * 99 / 100)];
}

CURL* FloorEasy(const std::string& url) {
  CURL* easy = curl_easy_init();
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Discard);
  // The library's own limits: 10 s to connect, 5 s of silence, 30 s in all.
  curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, 10000L);
  curl_easy_setopt(easy, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(easy, CURLOPT_LOW_SPEED_TIME, 5L);
  curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, 30000L);
  return easy;
}

// Floor for Connect: on a new multi handle (no connection yet), each camera's two parameter
// lists, the second sent when the first is in, until every live camera has both.
void BM_FloorCurlMultiConnect(benchmark::State& state) {
  const auto fleet = StartFleet(state);
  double live_ms = 0;
  for (auto _ : state) {
    CURLM* multi = curl_multi_init();
    std::vector<CURL*> easies;
    int live_left = 0;
    const auto start = Clock::now();
    for (const auto& d : fleet->Devices()) {
      CURL* easy = FloorEasy("http://" + d.device + "/axis-cgi/view/param.cgi?action=list&group=Input,Output");
      curl_easy_setopt(easy, CURLOPT_PRIVATE, reinterpret_cast<void*>(intptr_t{Live(d) ? 1 : 0}));
      curl_multi_add_handle(multi, easy);
      easies.push_back(easy);
      live_left += Live(d);
    }
    for (int running = 1; running && live_left > 0;) {
      curl_multi_perform(multi, &running);
      int queued = 0;
      while (CURLMsg* m = curl_multi_info_read(multi, &queued)) {
        if (m->msg != CURLMSG_DONE) continue;
        CURL* easy = m->easy_handle;
        void* stage = nullptr;
        curl_easy_getinfo(easy, CURLINFO_PRIVATE, &stage);
        curl_multi_remove_handle(multi, easy);
        if (!stage) continue;  // a dead camera
        if (m->data.result != CURLE_OK) state.SkipWithError("a live camera failed");
        if (reinterpret_cast<intptr_t>(stage) == 2) {
          --live_left;
          continue;
        }
        char* url = nullptr;
        curl_easy_getinfo(easy, CURLINFO_EFFECTIVE_URL, &url);
        std::string next(url);
        next.replace(next.find("group="), std::string::npos, "group=IOPort");
        curl_easy_setopt(easy, CURLOPT_URL, next.c_str());
        curl_easy_setopt(easy, CURLOPT_PRIVATE, reinterpret_cast<void*>(intptr_t{2}));
        curl_multi_add_handle(multi, easy);
        running = 1;
      }
      if (running && live_left > 0) curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
    }
    live_ms += Ms(Clock::now() - start);
    for (CURL* easy : easies) {
      curl_multi_remove_handle(multi, easy);
      curl_easy_cleanup(easy);
    }
    curl_multi_cleanup(multi);
  }
  state.counters["live_ms"] = live_ms / static_cast<double>(state.iterations());
}

struct EngineFleet {
  std::vector<std::shared_ptr<vmio::Object>> objects;
  std::vector<vmio::engine::AsyncDevice*> devices;

  explicit EngineFleet(const vmio::sim::FleetSim& fleet) {
    for (const auto& d : fleet.Devices()) {
      objects.push_back(vmio::CreateObject(d.progid));
      devices.push_back(dynamic_cast<vmio::engine::AsyncDevice*>(objects.back().get()));
    }
  }

  // Starts exchange(i) for every device at once on io; runs until every live one has ended
  // and returns each live one's time (ms). The dead ones' exchanges are cancelled then.
  std::vector<double> RunAll(const vmio::sim::FleetSim& fleet, vmio::engine::Io& io,
                             const std::function<vmio::engine::Task<void>(size_t)>& exchange, std::string& error) {
    const auto start = Clock::now();
    std::vector<vmio::engine::Task<void>> tasks;
    tasks.reserve(devices.size());  // the callbacks below hold references into it
    std::vector<double> times;
    size_t live_left = 0;
    for (size_t i = 0; i < devices.size(); ++i) {
      const bool live = Live(fleet.Devices()[i]);
      live_left += live;
      tasks.push_back(exchange(i));
      vmio::engine::Task<void>& task = tasks.back();
      task.Start([&, live] {
        if (!live) return;
        times.push_back(Ms(Clock::now() - start));
        try {
          task.Result();
        } catch (const std::exception& e) {
          error = e.what();
        }
        --live_left;
      });
    }
    while (live_left > 0) io.loop().RunOnce(1000);
    return times;
  }
};

// Each sweep's last live answer, and every live answer's time for the percentile.
struct SweepTimes {
  double live_ms = 0;
  std::vector<double> all;

  void Add(const std::vector<double>& times) {
    live_ms += *std::max_element(times.begin(), times.end());
    all.insert(all.end(), times.begin(), times.end());
  }
  void Report(benchmark::State& state) const {
    state.counters["live_ms"] = live_ms / static_cast<double>(state.iterations());
    state.counters["p99_ms"] = P99(all);
  }
};

// Every camera connected at once through the engine's loop (new objects each iteration).
void BM_EngineConnect(benchmark::State& state) {
  const auto fleet = StartFleet(state);
  SweepTimes sweeps;
  for (auto _ : state) {
    EngineFleet cameras(*fleet);
    vmio::engine::Io io;
    std::string error;
    const std::vector<double> times = cameras.RunAll(
        *fleet, io, [&](size_t i) { return cameras.devices[i]->ConnectOn(io, fleet->Devices()[i].device); }, error);
    if (!error.empty()) state.SkipWithError(error.c_str());
    sweeps.Add(times);
  }
  sweeps.Report(state);
}

// Every camera's inputs read at once through the engine's loop; the dead ones are trying to
// connect meanwhile, as the engine's retries do.
void BM_EngineRefresh(benchmark::State& state) {
  const auto fleet = StartFleet(state);
  EngineFleet cameras(*fleet);
  vmio::engine::Io io;
  std::string error;
  const auto connect = [&](size_t i) { return cameras.devices[i]->ConnectOn(io, fleet->Devices()[i].device); };
  cameras.RunAll(*fleet, io, connect, error);
  SweepTimes sweeps;
  for (auto _ : state) {
    const std::vector<double> times = cameras.RunAll(
        *fleet, io,
        [&](size_t i) { return Live(fleet->Devices()[i]) ? cameras.devices[i]->RefreshOn(io) : connect(i); }, error);
    if (!error.empty()) state.SkipWithError(error.c_str());
    sweeps.Add(times);
  }
  sweeps.Report(state);
}

// The public engine: from adding every device to every live one's first values.
void BM_EngineFirstValues(benchmark::State& state) {
  const auto fleet = StartFleet(state);
  double live_ms = 0;
  for (auto _ : state) {
    vmio::Engine engine;
    std::vector<int32_t> live;
    const auto start = Clock::now();
    for (const auto& d : fleet->Devices()) {
      const int32_t id = engine.Add(vmio::CreateObject(d.progid), d.device, {.interval_ms = 60000});
      if (Live(d)) live.push_back(id);
    }
    const auto all_read = [&] {
      for (const int32_t id : live)
        if (engine.Values(id).empty()) return false;
      return true;
    };
    while (!all_read()) engine.RunUntil(vmio::Engine::Now() + 1);
    live_ms += Ms(Clock::now() - start);
  }
  state.counters["live_ms"] = live_ms / static_cast<double>(state.iterations());
}

void BM_FloorCurlMulti(benchmark::State& state) {
  const auto fleet = StartFleet(state);
  CURLM* multi = curl_multi_init();
  std::vector<CURL*> easies;
  for (const auto& d : fleet->Devices()) {
    CURL* easy = FloorEasy("http://" + d.device + "/axis-cgi/io/port.cgi?check=1,2,3,4");
    curl_easy_setopt(easy, CURLOPT_PRIVATE, Live(d) ? easy : nullptr);
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

// Whole sweeps, in milliseconds of real time (the thread sleeps while it waits).
template <int kIterations>
void Sweeps(benchmark::internal::Benchmark* b) {
  b->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(kIterations);
}

// 1,000 cameras answering at once and after 20 ms; 100 with 5 dead (the dead cost seconds).
BENCHMARK(BM_FloorCurlMulti)
    ->Args({1000, 0, 0})
    ->Args({1000, 20, 0})
    ->Args({105, 20, 5})
    ->Args({1000, 20, 50})
    ->Apply(Sweeps<3>);
BENCHMARK(BM_FloorCurlMultiConnect)->Args({1000, 0, 0})->Args({1000, 20, 0})->Apply(Sweeps<3>);
BENCHMARK(BM_EngineConnect)->Args({1000, 0, 0})->Args({1000, 20, 0})->Apply(Sweeps<3>);
BENCHMARK(BM_EngineRefresh)->Args({1000, 0, 0})->Args({1000, 20, 0})->Args({1000, 20, 50})->Apply(Sweeps<5>);
BENCHMARK(BM_EngineFirstValues)->Args({1000, 20, 0})->Args({1000, 20, 50})->Apply(Sweeps<3>);
BENCHMARK(BM_BlockingObjects)->Args({1000, 0, 0})->Args({100, 20, 0})->Apply(Sweeps<1>);

}  // namespace

BENCHMARK_MAIN();
