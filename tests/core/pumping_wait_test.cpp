#include "core/pumping_wait.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/counting_target.h"
#include "support/test_clock.h"
#include "vmio/events.h"

namespace vmio {
namespace {

using namespace std::chrono_literals;

struct Pipe {
  int fds[2] = {-1, -1};
  Pipe() { EXPECT_EQ(pipe(fds), 0); }
  ~Pipe() {
    close(fds[0]);
    close(fds[1]);
  }
  WaitHandle ReadEnd() const { return fds[0]; }
  void Write() const { EXPECT_EQ(write(fds[1], "!", 1), 1); }
};

using Action = test::CountingTarget;

TEST(PumpingWait, RunsTimersWhileWaitingAndReturnsWhenTheHandleIsReady) {
  Pipe pipe;
  auto tick = std::make_shared<Action>();
  auto writer = std::make_shared<Action>();
  writer->also = [&] { pipe.Write(); };
  const int32_t ticking = StartCallbackTimer(tick, 20);
  const int32_t writing = StartCallbackTimer(writer, 150);

  const auto start = WaitClock::now();
  EXPECT_TRUE(PumpingWait(pipe.ReadEnd(), start + 2s)) << "ready: the writer timer ran inside the wait";
  const auto took = WaitClock::now() - start;
  EXPECT_GE(took, 150ms);
  EXPECT_LT(took, 400ms);
  EXPECT_EQ(writer->calls, 1);
  EXPECT_GE(tick->calls, 5);
  EXPECT_TRUE(PumpingWait(pipe.ReadEnd(), start)) << "still unread, and a passed deadline still looks";
  StopCallbackTimer(ticking);
  StopCallbackTimer(writing);
}

TEST(PumpingWait, ReturnsAtTheDeadlineWhenNothingBecomesReady) {
  Pipe pipe;
  for (const WaitHandle handle : {pipe.ReadEnd(), kNoWaitHandle}) {
    const auto start = WaitClock::now();
    EXPECT_FALSE(PumpingWait(handle, start + 120ms));
    const auto took = WaitClock::now() - start;
    EXPECT_GE(took, 120ms);
    EXPECT_LT(took, 220ms);
  }
  test::TestClock clock;
  auto due = std::make_shared<Action>();
  const int32_t id = StartCallbackTimer(due, 10);
  clock.Advance(20ms);
  EXPECT_FALSE(PumpingWait(kNoWaitHandle, WaitClock::now() - 1ms));
  EXPECT_EQ(due->calls, 1) << "a due timer runs even when the deadline has passed";
  StopCallbackTimer(id);
}

}  // namespace
}  // namespace vmio
