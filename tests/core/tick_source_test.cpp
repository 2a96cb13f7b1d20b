// The test clock moves everything that reads the library's clock, and a pumping wait on it
// keeps the rule its header states.
#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "core/common.h"
#include "core/pumping_wait.h"
#include "support/counting_target.h"
#include "support/test_clock.h"
#include "support/timing.h"
#include "vmio/events.h"

namespace vmio {
namespace {

using namespace std::chrono_literals;
using test::TestClock;

TEST(TestClock, MovesTheTickTheCachesAndTheTimersAcrossTheWrap) {
  {
    TestClock clock;
    const int32_t start = TickCount();
    StateCache cache;
    EXPECT_TRUE(cache.Stale()) << "never read";
    cache.MarkFresh();
    clock.Advance(500ms);
    EXPECT_FALSE(cache.Stale());
    clock.Advance(1ms);
    EXPECT_TRUE(cache.Stale()) << "501 ms after the read, on the far side of the wrap";
    EXPECT_LT(start, 0);
    EXPECT_GT(TickCount(), 0) << "the 32-bit tick wrapped meanwhile";
    EXPECT_EQ(TickDiff(start), 501);
    cache.MarkFresh();
    EXPECT_FALSE(cache.Stale());
    cache.MarkStale();
    EXPECT_TRUE(cache.Stale());

    auto counter = std::make_shared<test::CountingTarget>();
    const int32_t id = StartCallbackTimer(counter, 100);
    EXPECT_EQ(MillisecondsUntilNextEvent(), 100);
    clock.Advance(99ms);
    RunPendingEvents();
    EXPECT_EQ(counter->calls, 0);
    clock.Advance(1ms);
    RunPendingEvents();
    EXPECT_EQ(counter->calls, 1);
    StopCallbackTimer(id);
  }
  // Gone: the system clock again.
  const int64_t system = SystemMilliseconds();
  EXPECT_GE(WaitClock::now().time_since_epoch().count(), system);
  EXPECT_LT(TickDiff(static_cast<int32_t>(static_cast<uint32_t>(system))), 1000);
}

TEST(TestClock, AWaitWithNothingToWaitForJumpsFromBeatToBeatWithoutSleeping) {
  TestClock clock;
  auto counter = std::make_shared<test::CountingTarget>();
  const int32_t id = StartCallbackTimer(counter, 300);
  const auto start = WaitClock::now();
  const auto real = test::Timed([&] { EXPECT_FALSE(PumpingWait(kNoWaitHandle, start + 5001ms)); });
  EXPECT_EQ(WaitClock::now() - start, 5001ms);
  EXPECT_EQ(counter->calls, 16) << "every beat ran, at its time";
  EXPECT_LT(real, 1s);
  StopCallbackTimer(id);
}

TEST(TestClock, AWaitOnAHandleSeesAnAnswerWithinTheQuietPeriodAndJumpsAfterIt) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  TestClock clock;
  const auto start = WaitClock::now();
  std::jthread peer([&] {
    std::this_thread::sleep_for(20ms);  // a simulator's answer on another thread, in real time
    EXPECT_EQ(write(fds[1], "!", 1), 1);
  });
  EXPECT_TRUE(PumpingWait(fds[0], start + 5001ms));
  EXPECT_EQ(WaitClock::now(), start) << "an answer within the quiet period takes no time";
  peer.join();

  char byte;
  EXPECT_EQ(read(fds[0], &byte, 1), 1);
  const auto real = test::Timed([&] { EXPECT_FALSE(PumpingWait(fds[0], start + 5001ms)); });
  EXPECT_EQ(WaitClock::now() - start, 5001ms);
  EXPECT_GE(real, TestClock::kQuiet);
  EXPECT_LT(real, 5s);
  close(fds[0]);
  close(fds[1]);
}

}  // namespace
}  // namespace vmio
