#include "event_wait.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "vmio/events.h"

namespace vmio::cli {

bool WaitRunningEvents(int64_t ms, const std::atomic<bool>* stop) {
  using Clock = std::chrono::steady_clock;
  using std::chrono::milliseconds;
  // Sleeps at most this long at a time, so a stop request is noticed promptly.
  constexpr milliseconds kLongestSleep{50};
  const auto deadline = Clock::now() + milliseconds(ms);
  for (;;) {
    vmio::RunPendingEvents();
    if (stop && *stop) return false;
    const auto now = Clock::now();
    if (now >= deadline) return true;
    Clock::duration sleep = std::min<Clock::duration>(kLongestSleep, deadline - now);
    if (const int32_t next = vmio::MillisecondsUntilNextEvent(); next >= 0)
      sleep = std::min<Clock::duration>(sleep, milliseconds(next));
    std::this_thread::sleep_for(sleep);
  }
}

}  // namespace vmio::cli
