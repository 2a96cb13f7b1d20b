// The concurrent engine against a simulated fleet on loopback, through the public API only.
#include "vmio/engine.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <set>
#include <thread>
#include <vector>

#include "fleet_sim.h"
#include "support/sanitized.h"
#include "vmio/error.h"
#include "vmio/events.h"
#include "vmio/io_device.h"
#include "vmio/objects.h"

namespace vmio {
namespace {

using sim::FleetHealth;
using sim::FleetOptions;
using sim::FleetSim;

struct Watched {
  Engine engine;
  std::vector<int32_t> ids;  // by fleet index
  std::vector<EngineEvent> events;

  void AddFleet(const FleetSim& fleet, WatchOptions options) {
    for (const sim::FleetDevice& device : fleet.Devices())
      ids.push_back(engine.Add(CreateObject(device.progid), device.device, options));
  }
  void Take() {
    EngineEvent event;
    while (engine.NextEvent(event)) events.push_back(std::move(event));
  }
  // Runs until pred holds or the deadline passes; whether it held.
  template <class Pred>
  bool RunUntil(Pred pred, int64_t ms) {
    const int64_t deadline = Engine::Now() + ms;
    while (Engine::Now() < deadline) {
      engine.RunUntil(std::min(deadline, Engine::Now() + 20));
      Take();
      if (pred()) return true;
    }
    return false;
  }
  std::map<int32_t, DeviceState> States() const {
    std::map<int32_t, DeviceState> states;
    for (int32_t id : ids) states[id] = engine.State(id);
    return states;
  }
};

FleetOptions Cameras(int devices, int silent, int unaccepting) {
  FleetOptions options;
  options.devices = devices;
  options.silent = silent;
  options.unaccepting = unaccepting;
  options.base = "127.23.0.1";
  return options;
}

TEST(EngineTest, KeepsLiveDevicesFreshWhileDeadOnesOnlyCostTheirOwnTime) {
  FleetSim fleet(Cameras(12, 1, 1));
  fleet.Start();
  Watched w;
  WatchOptions options;
  options.interval_ms = 100;
  options.offline_after_ms = 600;
  w.AddFleet(fleet, options);

  const auto live = [&] {
    std::vector<int32_t> ids;
    for (size_t i = 0; i < fleet.Devices().size(); ++i)
      if (fleet.Devices()[i].health == FleetHealth::Live) ids.push_back(w.ids[i]);
    return ids;
  }();
  ASSERT_EQ(live.size(), 10u);
  const int64_t start = Engine::Now();
  ASSERT_TRUE(w.RunUntil(
      [&] {
        for (int32_t id : live)
          if (w.engine.State(id) != DeviceState::kOnline || w.engine.Values(id).size() != 6) return false;
        return true;
      },
      2000));
  // The dead ones' time-outs (5 s and 10 s) held nobody up.
  EXPECT_LT(Engine::Now() - start, 1000);
  for (size_t i = 0; i < fleet.Devices().size(); ++i) {
    if (fleet.Devices()[i].health != FleetHealth::Live) {
      EXPECT_EQ(w.engine.State(w.ids[i]), DeviceState::kConnecting);
    }
  }

  // Every live port was reported once, with its value, as it was first read.
  std::map<int32_t, std::set<int32_t>> reported;
  for (const EngineEvent& e : w.events)
    if (e.kind == EngineEvent::Kind::kValue) reported[e.device].insert(e.port);
  for (int32_t id : live) EXPECT_EQ(reported[id].size(), 6u) << id;

  // A change at a device arrives within an interval or two; the dead go offline on their age.
  const size_t first_live = static_cast<size_t>(std::find(w.ids.begin(), w.ids.end(), live[0]) - w.ids.begin());
  fleet.SetInput(static_cast<int>(first_live), 2, true);
  w.events.clear();
  ASSERT_TRUE(w.RunUntil(
      [&] {
        for (const EngineEvent& e : w.events)
          if (e.kind == EngineEvent::Kind::kValue && e.device == live[0] && e.port == 1) return true;
        return false;
      },
      500));
  EXPECT_EQ(w.engine.Values(live[0])[1], Variant(true));
  ASSERT_TRUE(w.RunUntil(
      [&] {
        int offline = 0;
        for (const auto& [id, state] : w.States()) offline += state == DeviceState::kOffline;
        return offline == 2;
      },
      1500));
  for (int32_t id : live) EXPECT_EQ(w.engine.State(id), DeviceState::kOnline);
}

// A device that stops answering goes stale counted from its last good read, not from the
// read that hangs.
TEST(EngineTest, StaleCountsFromTheLastGoodRead) {
  FleetSim fleet(Cameras(1, 0, 0));
  fleet.Start();
  Watched w;
  WatchOptions options;
  options.interval_ms = 150;  // stale after 300
  w.AddFleet(fleet, options);
  ASSERT_TRUE(w.RunUntil([&] { return w.engine.Values(w.ids[0]).size() == 6; }, 1000));
  // Stopped just after a read: the next one starts an interval later and never ends.
  fleet.SetInput(0, 1, true);
  ASSERT_TRUE(w.RunUntil([&] { return w.engine.Values(w.ids[0])[0] == Variant(true); }, 1000));
  fleet.Stop();
  const int64_t stopped = Engine::Now();
  ASSERT_TRUE(w.RunUntil([&] { return w.engine.State(w.ids[0]) == DeviceState::kStale; }, 1000));
  EXPECT_LE(Engine::Now() - stopped, 2 * options.interval_ms + 75);
}

struct Ticks final : Callbackable {
  void Callback() override { ++count; }
  int count = 0;
};

// The thread's timers (a logger's keep-alive) run inside the engine's run, with nothing else to do.
TEST(EngineTest, RunsTheThreadsTimersToo) {
  Engine engine;
  const auto ticks = std::make_shared<Ticks>();
  const int32_t timer = StartCallbackTimer(ticks, 20);
  EXPECT_GE(engine.Timeout(), 0);
  engine.RunUntil(Engine::Now() + 110);
  StopCallbackTimer(timer);
  EXPECT_GE(ticks->count, 4);
  EXPECT_EQ(engine.Timeout(), -1);
}

TEST(EngineTest, WritesRunInOrderBetweenReadsEachWithItsResult) {
  FleetSim fleet(Cameras(2, 0, 0));
  fleet.Start();
  Watched w;
  WatchOptions options;
  options.interval_ms = 5000;  // the writes must not wait for it
  w.AddFleet(fleet, options);
  ASSERT_TRUE(w.RunUntil([&] { return w.engine.Values(w.ids[1]).size() == 6; }, 2000));

  const uint64_t on = w.engine.Write(w.ids[1], 4, Variant(true));     // the first output
  const uint64_t input = w.engine.Write(w.ids[1], 0, Variant(true));  // an input
  const uint64_t bad = w.engine.Write(w.ids[1], 9, Variant(true));    // no such port
  std::map<uint64_t, EngineEvent> results;
  ASSERT_TRUE(w.RunUntil(
      [&] {
        for (const EngineEvent& e : w.events)
          if (e.kind == EngineEvent::Kind::kWrite) results[e.write_id] = e;
        return results.size() == 3;
      },
      1000));
  EXPECT_EQ(results[on].error, 0);
  EXPECT_EQ(fleet.Output(1, 1), 1);
  EXPECT_EQ(results[input].error, IOErrorInvalidPortDirection);
  EXPECT_EQ(results[input].description, "Port 1is not an output port");
  EXPECT_EQ(results[bad].error, kSubscriptOutOfRange);
  EXPECT_LT(on, input);
  EXPECT_LT(input, bad);
  EXPECT_EQ(fleet.Output(0, 1), 0);  // the other device was not touched
}

TEST(EngineTest, RefusesMisuseWithAutomationErrors) {
  FleetSim fleet(Cameras(2, 1, 0));
  fleet.Start();
  Watched w;
  w.AddFleet(fleet, {});
  const auto number = [](auto&& call) {
    try {
      call();
    } catch (const AutomationError& e) {
      return e.Number();
    }
    return 0;
  };
  EXPECT_EQ(number([&] { w.engine.Add(CreateObject("VMIO.LogITEnum"), "x"); }), kTypeMismatch);
  EXPECT_EQ(number([&] { w.engine.Add(w.engine.Device(w.ids[0]), "x"); }), kKeyAlreadyAssociated);
  EXPECT_EQ(number([&] { w.engine.Add(CreateObject("VMIO.Axis"), "x", WatchOptions{.interval_ms = 1}); }),
            kInvalidProcedureCall);
  EXPECT_EQ(number([&] { w.engine.State(99); }), kSubscriptOutOfRange);
  // The engine and every object belong to their thread: other threads get an error, not a race.
  auto camera = std::dynamic_pointer_cast<IODevice>(CreateObject("VMIO.Axis"));
  std::vector<int32_t> from_other_threads(5);
  std::vector<std::thread> threads;
  threads.emplace_back([&] { from_other_threads[4] = number([&] { w.engine.State(w.ids[0]); }); });
  for (int t = 0; t < 4; ++t)
    threads.emplace_back(
        [&, t] { from_other_threads[static_cast<size_t>(t)] = number([&] { camera->PortValue(0); }); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(from_other_threads, std::vector<int32_t>(5, kWrongThread));

  // Removing a device mid-exchange (the silent one waits for its answer) leaves nothing behind.
  w.RunUntil([] { return false; }, 200);
  EXPECT_FALSE(w.engine.Descriptors().empty());
  w.engine.Remove(w.ids[1]);
  w.engine.Remove(w.ids[0]);
  w.RunUntil([] { return false; }, 100);
  EXPECT_TRUE(w.engine.Descriptors().empty());
  EXPECT_EQ(w.engine.Timeout(), -1);
}

// A host that runs out of descriptors is told so, not that its devices look dead.
TEST(EngineTest, RunningOutOfDescriptorsIsReportedAsSuch) {
  if (test::kSanitized) GTEST_SKIP() << test::kNeedsDescriptorsOfItsOwn;
  FleetSim fleet(Cameras(2, 0, 0));
  fleet.Start();
  auto first = std::dynamic_pointer_cast<IODevice>(CreateObject("VMIO.Axis"));
  first->Connect(fleet.Devices()[0].device);
  Engine engine;
  engine.Add(CreateObject("VMIO.Axis"), fleet.Devices()[1].device, {.interval_ms = 50});

  std::vector<int> fillers;
  for (int fd; fillers.size() < 100000 && (fd = ::open("/dev/null", O_RDONLY)) >= 0;) fillers.push_back(fd);
  auto second = std::dynamic_pointer_cast<IODevice>(CreateObject("VMIO.Axis"));
  try {
    second->Connect(fleet.Devices()[1].device);
    ADD_FAILURE() << "connected without a descriptor";
  } catch (const AutomationError& e) {
    EXPECT_EQ(e.Number(), kTooManyFiles);
    EXPECT_EQ(e.Description(), "Too many files");
  }
  engine.RunUntil(Engine::Now() + 100);
  EngineEvent event;
  bool reported = false;
  while (engine.NextEvent(event)) reported |= event.kind == EngineEvent::Kind::kError && event.error == kTooManyFiles;
  EXPECT_TRUE(reported);
  for (const int fd : fillers) ::close(fd);
  second->Connect(fleet.Devices()[1].device);  // with descriptors back, all is well again
}

}  // namespace
}  // namespace vmio
