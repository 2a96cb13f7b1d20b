#pragma once
// The test programs' clock: while one lives it is the library's clock for the whole process
// (the tick, wait deadlines, timers), and it stands still until the test advances it or a
// library wait sleeps. core/pumping_wait.h states the rule a sleep keeps and why it is sound.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>

#include "core/pumping_wait.h"
#include "core/tick_source.h"

namespace vmio::test {

class TestClock final : public TickSource {
 public:
  // How long a sleep on a handle waits on the system clock for a simulator to answer before
  // the clock moves on: far above a loopback reply on a loaded machine, far below a time-out.
  static constexpr std::chrono::milliseconds kQuiet{200};
  // Just before the 32-bit tick wraps, so a test that waits out a cache crosses the wrap.
  static constexpr int64_t kStart = (int64_t{1} << 32) - 250;

  TestClock() { SetTickSourceForTesting(this); }
  ~TestClock() { SetTickSourceForTesting(nullptr); }
  TestClock(const TestClock&) = delete;
  TestClock& operator=(const TestClock&) = delete;

  void Advance(std::chrono::milliseconds by) { now_ += by.count(); }

  // How long call took on this clock.
  template <typename Call>
  std::chrono::milliseconds Timed(Call call) {
    const int64_t start = now_;
    call();
    return std::chrono::milliseconds(now_ - start);
  }

  int64_t Milliseconds() override { return now_; }

  bool Idle(std::intptr_t handle, int32_t milliseconds) override {
    const auto real = std::min<int64_t>(milliseconds, kQuiet.count());
    if (handle != kNoWaitHandle && WaitForHandle(handle, static_cast<int32_t>(real))) return true;
    now_ += milliseconds;
    return false;
  }

 private:
  std::atomic<int64_t> now_{kStart};
};

}  // namespace vmio::test
