// ADAM exchanges on one loop: a module that does not answer must not hold back one that does.
#include <gtest/gtest.h>

#include <chrono>

#include "adam_sim.h"
#include "devices/adam/adam.h"
#include "engine/io.h"
#include "support/turn_loop.h"

namespace vmio {
namespace {

using sim::AdamSim;
using sim::AdamUdpMode;
using Clock = std::chrono::steady_clock;
using test::TurnUntilDone;

struct Module {
  explicit Module(AdamUdpMode mode) : sim({.model = "6060", .udp_mode = mode}) {
    sim.Start();
    adam = std::make_unique<ADAM>(static_cast<uint16_t>(sim.UdpPort()));
  }
  AdamSim sim;
  std::unique_ptr<ADAM> adam;
};

TEST(ADAMOnOneLoop, ASilentModuleHoldsBackNeitherTheConnectNorTheReadsOfALiveOne) {
  Module live(AdamUdpMode::Answer);
  Module silent(AdamUdpMode::Silent);   // its model query waits out the 5 s reply wait
  live.sim.Points().SetInput(5, true);  // input 4
  engine::Io io;

  engine::Task<void> silent_connect = silent.adam->ConnectOn(io, silent.sim.DeviceString());
  engine::Task<void> live_connect = live.adam->ConnectOn(io, live.sim.DeviceString());
  silent_connect.Start([] {});
  live_connect.Start([] {});

  const auto started = Clock::now();
  ASSERT_TRUE(TurnUntilDone(io, live_connect, std::chrono::seconds(4)));
  live_connect.Result();
  engine::Task<void> refresh = live.adam->RefreshOn(io);
  refresh.Start([] {});
  ASSERT_TRUE(TurnUntilDone(io, refresh, std::chrono::seconds(4)));
  refresh.Result();
  EXPECT_LT(Clock::now() - started, std::chrono::seconds(1));
  EXPECT_FALSE(silent_connect.Done());
  EXPECT_EQ(live.adam->Ports(), 12);
  EXPECT_TRUE(live.adam->TableValues().at(4).AsBool());
  EXPECT_FALSE(live.adam->TableValues().at(3).AsBool());

  // A write on the same loop while the silent connect still waits.
  engine::Task<void> write = live.adam->WriteOn(io, 6, Variant(true));
  write.Start([] {});
  ASSERT_TRUE(TurnUntilDone(io, write, std::chrono::seconds(4)));
  write.Result();
  EXPECT_TRUE(live.sim.Points().Output(1));  // relay 0
  EXPECT_FALSE(silent_connect.Done());

  // Dropping the waiting exchange takes its socket and timer off the loop.
  EXPECT_EQ(io.loop().Watches(), 1u);
  silent_connect = {};
  EXPECT_EQ(io.loop().Watches(), 0u);
  EXPECT_EQ(io.loop().Timers(), 0u);
}

}  // namespace
}  // namespace vmio
