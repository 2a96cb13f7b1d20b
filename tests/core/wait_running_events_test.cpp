// The host's form of the pumping wait, as a program without its own event loop uses it.
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/counting_target.h"
#include "vmio/events.h"

namespace vmio {
namespace {

TEST(WaitRunningEvents, RunsDueTimersAndTellsWhetherTheHandleBecameReady) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  auto writer = std::make_shared<test::CountingTarget>();
  writer->also = [&] { EXPECT_EQ(write(fds[1], "!", 1), 1); };
  const int32_t timer = StartCallbackTimer(writer, 10);
  // The timer writes inside the wait, which then returns at once rather than at its end.
  EXPECT_TRUE(WaitRunningEvents(fds[0], 60000));
  EXPECT_EQ(writer->calls, 1);
  StopCallbackTimer(timer);
  // Ready data stays ready; 0 milliseconds only looks, as does a negative time.
  EXPECT_TRUE(WaitRunningEvents(fds[0], 0));
  EXPECT_TRUE(WaitRunningEvents(fds[0], -5));
  char byte;
  ASSERT_EQ(read(fds[0], &byte, 1), 1);
  EXPECT_FALSE(WaitRunningEvents(fds[0], 0));
  // With nothing to wait for, the time passes and the answer is false.
  EXPECT_FALSE(WaitRunningEvents(kNoWaitHandle, 20));
  close(fds[0]);
  close(fds[1]);
}

}  // namespace
}  // namespace vmio
