#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <thread>

#include "support/counting_target.h"
#include "support/raised.h"
#include "support/test_clock.h"
#include "vmio/error.h"
#include "vmio/events.h"

namespace vmio {
namespace {

using namespace std::chrono_literals;
using test::Raised;
using Counter = test::CountingTarget;
using test::TestClock;

const std::string kInvalidCall = "5 Invalid procedure call or argument";

TEST(CallbackTimer, FiresOnlyWhenEventsRunAndCoalescesMissedPeriods) {
  TestClock clock;
  auto counter = std::make_shared<Counter>();
  const int32_t id = StartCallbackTimer(counter, 40);
  EXPECT_GT(id, 0);
  clock.Advance(130ms);
  EXPECT_EQ(counter->calls, 0) << "no callback without letting events run";
  RunPendingEvents();
  EXPECT_EQ(counter->calls, 1) << "three missed periods fire once";
  RunPendingEvents();
  EXPECT_EQ(counter->calls, 1) << "the next beat is still ahead";
  const int32_t wait = MillisecondsUntilNextEvent();
  EXPECT_GT(wait, 0);
  EXPECT_LE(wait, 40);
  StopCallbackTimer(id);
  EXPECT_EQ(MillisecondsUntilNextEvent(), -1);
}

TEST(CallbackTimer, PeriodicUnderAHostPollLoop) {
  TestClock clock;
  auto counter = std::make_shared<Counter>();
  const int32_t id = StartCallbackTimer(counter, 50);
  const int32_t first = MillisecondsUntilNextEvent();
  EXPECT_GT(first, 40);
  EXPECT_LE(first, 50);
  // A host loop that sleeps exactly as long as it is told.
  for (auto slept = 0ms; slept < 330ms;) {
    const auto told = std::chrono::milliseconds(MillisecondsUntilNextEvent());
    clock.Advance(told);
    slept += told;
    RunPendingEvents();
  }
  StopCallbackTimer(id);
  EXPECT_GE(counter->calls, 4);
  EXPECT_LE(counter->calls, 7);
}

TEST(CallbackTimer, EachObjectGetsItsOwnCallbacks) {
  TestClock clock;
  auto fast = std::make_shared<Counter>();
  auto slow = std::make_shared<Counter>();
  const int32_t fast_id = StartCallbackTimer(fast, 20);
  const int32_t slow_id = StartCallbackTimer(slow, 10000);
  EXPECT_NE(fast_id, slow_id);
  clock.Advance(30ms);
  RunPendingEvents();
  EXPECT_EQ(fast->calls, 1);
  EXPECT_EQ(slow->calls, 0);
  StopCallbackTimer(fast_id);
  StopCallbackTimer(slow_id);
}

TEST(CallbackTimer, NeverFiresAfterStopEvenWhenAlreadyDue) {
  TestClock clock;
  auto a = std::make_shared<Counter>();
  auto b = std::make_shared<Counter>();
  const int32_t a_id = StartCallbackTimer(a, 10);
  const int32_t b_id = StartCallbackTimer(b, 20);
  clock.Advance(40ms);  // both due; a's beat comes first

  StopCallbackTimer(a_id);
  RunPendingEvents();
  EXPECT_EQ(a->calls, 0);
  EXPECT_EQ(b->calls, 1);

  // Stopped by an earlier callback of the same pass.
  auto c = std::make_shared<Counter>();
  auto d = std::make_shared<Counter>();
  const int32_t c_id = StartCallbackTimer(c, 10);
  const int32_t d_id = StartCallbackTimer(d, 20);
  c->also = [d_id] { StopCallbackTimer(d_id); };
  clock.Advance(40ms);
  RunPendingEvents();
  EXPECT_EQ(c->calls, 1);
  EXPECT_EQ(d->calls, 0);
  EXPECT_EQ(Raised([d_id] { StopCallbackTimer(d_id); }), kInvalidCall);
  StopCallbackTimer(b_id);
  StopCallbackTimer(c_id);
}

TEST(CallbackTimer, ErrorsInACallbackAreSwallowedAndTheTimerKeepsRunning) {
  TestClock clock;
  auto counter = std::make_shared<Counter>();
  counter->also = [&] {
    if (counter->calls == 1) throw AutomationError(45005, "Timed out receiving data");
    if (counter->calls == 2) throw std::runtime_error("boom");
  };
  const int32_t id = StartCallbackTimer(counter, 10);
  for (int i = 0; i < 3; ++i) {
    clock.Advance(15ms);
    EXPECT_NO_THROW(RunPendingEvents());
  }
  EXPECT_EQ(counter->calls, 3);
  StopCallbackTimer(id);
}

TEST(CallbackTimer, RegistryOwnsTheTargetUntilStopped) {
  TestClock clock;
  auto counter = std::make_shared<Counter>();
  const std::weak_ptr<Counter> watch = counter;
  const int32_t id = StartCallbackTimer(counter, 10);
  counter->also = [id] { StopCallbackTimer(id); };  // stops itself while running
  counter.reset();
  ASSERT_FALSE(watch.expired());
  clock.Advance(15ms);
  RunPendingEvents();
  EXPECT_TRUE(watch.expired()) << "released once its callback stopped its own timer";

  EXPECT_EQ(Raised([id] { StopCallbackTimer(id); }), kInvalidCall) << "stopping an unknown timer must raise";
}

TEST(CallbackTimer, TimersBelongToTheThreadThatStartedThem) {
  TestClock clock;
  auto counter = std::make_shared<Counter>();
  int32_t other_id = 0;
  std::thread([&] {
    other_id = StartCallbackTimer(counter, 10);
    EXPECT_EQ(other_id, 1) << "each thread numbers its timers from 1";
    clock.Advance(15ms);
    RunPendingEvents();
    StopCallbackTimer(other_id);
  }).join();
  EXPECT_EQ(counter->calls, 1);

  auto mine = std::make_shared<Counter>();
  const int32_t id = StartCallbackTimer(mine, 10);
  std::thread([&] {
    clock.Advance(15ms);
    RunPendingEvents();
    EXPECT_EQ(Raised([id] { StopCallbackTimer(id); }), kInvalidCall);
  }).join();
  EXPECT_EQ(mine->calls, 0);
  StopCallbackTimer(id);
}

TEST(CallbackTimer, AFailedStartIsRegisteredUnderIdZero) {
  auto target = std::make_shared<Counter>();
  std::vector<int32_t> ids;
  for (int i = 0; i < 10000; ++i) ids.push_back(StartCallbackTimer(target, 100000));
  EXPECT_EQ(StartCallbackTimer(target, 10), 0);
  EXPECT_EQ(Raised([&] { StartCallbackTimer(target, 10); }),
            "457 This key is already associated with an element of this collection");
  StopCallbackTimer(0);
  EXPECT_EQ(Raised([] { StopCallbackTimer(0); }), kInvalidCall);
  for (int32_t id : ids) StopCallbackTimer(id);
  const int32_t id = StartCallbackTimer(target, 10);
  EXPECT_GT(id, 0) << "starts work again once timers are stopped";
  StopCallbackTimer(id);
}

}  // namespace
}  // namespace vmio
