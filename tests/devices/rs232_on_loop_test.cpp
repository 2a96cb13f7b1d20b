// RS232 reads on one engine loop: an instrument that does not answer holds back no other, and
// times out as a blocking read does.
#include <gtest/gtest.h>

#include <chrono>

#include "devices/rs232/rs232.h"
#include "engine/io.h"
#include "serial_sim.h"
#include "support/raised.h"
#include "support/turn_loop.h"

namespace vmio {
namespace {

using Clock = std::chrono::steady_clock;
using test::TurnUntilDone;

TEST(RS232OnOneLoop, ASilentInstrumentHoldsBackNoOtherAndTimesOutAsABlockingReadDoes) {
  sim::SerialSim live_line, silent_line;
  live_line.SetReply("T?", {.text = "21.4\r\n", .delay_ms = 200});
  silent_line.SetSilent(true);
  RS232 live, silent;
  live.AddCommand("T?\r");
  silent.AddCommand("T?\r");
  live.Connect(live_line.Path());
  silent.Connect(silent_line.Path());

  engine::Io io;
  engine::Task<void> silent_read = silent.RefreshOn(io);
  engine::Task<void> live_read = live.RefreshOn(io);
  const auto started = Clock::now();
  silent_read.Start([] {});
  live_read.Start([] {});
  ASSERT_TRUE(TurnUntilDone(io, live_read, std::chrono::seconds(3)));
  live_read.Result();
  EXPECT_LT(Clock::now() - started, std::chrono::seconds(1));
  EXPECT_EQ(live.TableValues().at(0), Variant("21.4"));
  EXPECT_FALSE(silent_read.Done());

  ASSERT_TRUE(TurnUntilDone(io, silent_read, std::chrono::seconds(7)));
  const auto waited = Clock::now() - started;
  EXPECT_GE(waited, std::chrono::milliseconds(5000));
  EXPECT_EQ(test::Raised([&] { silent_read.Result(); }), "45005 Timed out receiving data");
  EXPECT_EQ(io.loop().Watches(), 0u);
  EXPECT_EQ(io.loop().Timers(), 0u);
}

}  // namespace
}  // namespace vmio
