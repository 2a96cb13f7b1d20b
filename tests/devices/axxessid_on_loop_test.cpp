// AxxessID doors on one engine loop: a door status the software never answers holds back no
// other door, and times out as a blocking read does.
#include <gtest/gtest.h>

#include <chrono>

#include "ax200_sim.h"
#include "devices/axxessid/axxessid_door.h"
#include "engine/io.h"
#include "scoped_environment.h"
#include "support/raised.h"
#include "support/turn_loop.h"

namespace vmio {
namespace {

using Clock = std::chrono::steady_clock;
using test::TurnUntilDone;

// A door attached to its own simulated service.
void ConnectTo(AxxessIDDoor& door, const sim::Ax200Sim& service) {
  const sim::ScopedEnvironment where("VMIO_AX200", service.Address());
  door.Connect("site");
}

TEST(AxxessIDDoorOnOneLoop, AStatusNeverAnsweredHoldsBackNoOtherDoorAndTimesOutAsABlockingReadDoes) {
  sim::Ax200Sim answering, mute;
  answering.Start();
  mute.Start();
  mute.SetStatusAnswer(sim::StatusAnswer::kNever);
  AxxessIDDoor live, stuck;
  ConnectTo(live, answering);
  ConnectTo(stuck, mute);

  engine::Io io;
  engine::Task<void> stuck_read = stuck.RefreshOn(io);
  engine::Task<void> live_read = live.RefreshOn(io);
  const auto started = Clock::now();
  stuck_read.Start([] {});
  live_read.Start([] {});
  ASSERT_TRUE(TurnUntilDone(io, live_read, std::chrono::seconds(3)));
  live_read.Result();
  EXPECT_LT(Clock::now() - started, std::chrono::milliseconds(1000));
  EXPECT_EQ(live.TableValues(), (std::vector<Variant>{Variant("Normal"), Variant("Secure")}));
  EXPECT_FALSE(stuck_read.Done());

  ASSERT_TRUE(TurnUntilDone(io, stuck_read, std::chrono::seconds(4)));
  EXPECT_GE(Clock::now() - started, std::chrono::milliseconds(2000));
  EXPECT_EQ(test::Raised([&] { stuck_read.Result(); }), "45005 Timed out getting door status");
  EXPECT_EQ(io.loop().Watches(), 0u);
  EXPECT_EQ(io.loop().Timers(), 0u);
}

}  // namespace
}  // namespace vmio
