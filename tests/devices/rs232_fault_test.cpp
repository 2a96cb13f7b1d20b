// An instrument that misbehaves: each fault ends the call with its documented outcome within
// the reply time-out, and the same object works again once the instrument behaves.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "devices/rs232/rs232.h"
#include "serial_sim.h"
#include "support/raised.h"
#include "support/test_clock.h"
#include "support/timing.h"

namespace vmio {
namespace {

using namespace std::chrono_literals;
using test::CpuMicroseconds;
using test::Raised;
using test::TestClock;
using test::Timed;

const std::string kTimedOut = "45005 Timed out receiving data";
constexpr auto kReplyTimeout = 5001ms;
constexpr auto kLatest = kReplyTimeout + 600ms;

// A flood that also stops by itself after a while, so a read that waits for its end fails the
// test instead of hanging it.
class Flood {
 public:
  explicit Flood(sim::SerialSim& line) : line_(line) {
    line_.SetFlood(true);
    guard_ = std::jthread([this](std::stop_token stop) {
      std::unique_lock lock(mu_);
      std::condition_variable_any().wait_for(lock, stop, 14s, [] { return false; });
      line_.SetFlood(false);
    });
  }
  ~Flood() { Stop(); }
  void Stop() {
    guard_.request_stop();
    if (guard_.joinable()) guard_.join();
  }

 private:
  sim::SerialSim& line_;
  std::mutex mu_;
  std::jthread guard_;
};

class RS232FaultTest : public ::testing::Test {
 protected:
  void SetUp() override {
    instrument.SetReply("T?", {.text = "21.4\r\n"});
    rs232.AddCommand("T?\r");  // 0: command
    rs232.AddCommand("\r\n");  // 1: listening for lines
    rs232.AddCommand("");      // 2: listening for everything
    rs232.Connect(instrument.Path());
  }

  std::string Value(int32_t index) { return rs232.PortValue(index).AsString(); }

  sim::SerialSim instrument;
  RS232 rs232;
};

TEST_F(RS232FaultTest, SilentInstrumentTimesOutThenAnswersAgain) {
  TestClock clock;
  instrument.SetSilent(true);
  const auto took = clock.Timed([&] { EXPECT_EQ(Raised([&] { rs232.PortValue(0); }), kTimedOut); });
  EXPECT_GE(took, kReplyTimeout - 1ms);
  EXPECT_LT(took, kLatest);
  EXPECT_EQ(instrument.Received(), "T?\r");
  instrument.SetSilent(false);
  EXPECT_EQ(Value(0), "21.4");
}

TEST_F(RS232FaultTest, EndlessLineBoundsEveryReadAndItsMemory) {
  instrument.Send("before\r\n");
  EXPECT_EQ(Value(1), "before");
  Flood flood(instrument);
  std::this_thread::sleep_for(50ms);
  // Discarding the stream before the command never ends by itself; it is part of the wait. (On a
  // loaded machine the flood may pause long enough for the command to get through: what must
  // hold either way is the bound.)
  test::Clock::duration took = Timed([&] {
    const std::string raised = Raised([&] { rs232.PortValue(0); });
    EXPECT_TRUE(raised == kTimedOut || raised == "none") << raised;
  });
  EXPECT_LT(took, kLatest);
  // Listening reads for the time-out at most (less when a loaded machine pauses the flood), and
  // the line it never finished stays unfinished.
  took = Timed([&] { EXPECT_EQ(Value(1), "before"); });
  EXPECT_LT(took, kLatest);
  flood.Stop();

  // What was kept of the endless line: its newest 64 KiB only.
  const std::string kept = Value(2);
  EXPECT_EQ(kept.size(), 64u * 1024);
  EXPECT_EQ(kept.find_first_not_of('x'), std::string::npos);
  instrument.Send("after\r\n");
  EXPECT_EQ(Value(1), "after");
  EXPECT_EQ(Value(0), "21.4");
}

TEST_F(RS232FaultTest, HungUpLineTimesOutIdlyAndAReconnectRecovers) {
  instrument.Send("last\r\n");
  EXPECT_EQ(Value(1), "last");
  instrument.HangUp();
  TestClock clock;
  const long cpu_before = CpuMicroseconds();
  const auto took = clock.Timed([&] { EXPECT_EQ(Raised([&] { rs232.PortValue(0); }), kTimedOut); });
  const long cpu_us = CpuMicroseconds() - cpu_before;
  EXPECT_GE(took, kReplyTimeout - 1ms);
  EXPECT_LT(took, kLatest);
  // A loop polling the line would never let the test clock reach the deadline.
  EXPECT_LT(cpu_us, std::chrono::duration_cast<std::chrono::microseconds>(took).count() / 10)
      << "a hung-up line is waited out, not polled in a loop";
  EXPECT_EQ(clock.Timed([&] { EXPECT_EQ(Value(1), "last"); }), 0ms) << "nothing more arrives";

  // The device node went with the hang-up; the same object opens the one that replaces it.
  sim::SerialSim replacement;
  replacement.SetReply("T?", {.text = "19.9\r"});
  rs232.Connect(replacement.Path());
  EXPECT_EQ(Value(0), "19.9");
}

}  // namespace
}  // namespace vmio
