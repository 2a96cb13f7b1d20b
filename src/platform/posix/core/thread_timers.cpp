// Thread timers without a message loop: each thread keeps a queue of its timers and runs the
// due ones when its host lets events run (RunPendingEvents), or while a library wait pumps.
#include <algorithm>
#include <chrono>
#include <limits>
#include <map>
#include <utility>
#include <vector>

#include "core/thread_timers.h"
#include "core/tick_source.h"
#include "vmio/events.h"

namespace vmio {
namespace {

// The installed clock, so a test clock makes timers due.
using Clock = WaitClock;

// The system timers' limits: shorter intervals are raised to the minimum, and a thread may
// hold only so many timers.
constexpr int32_t kMinimumInterval = 10;
constexpr size_t kMaximumTimers = 10000;

struct Timer {
  TimerProcedure procedure = nullptr;
  Clock::duration interval{};
  Clock::time_point due{};
};

struct Queue {
  std::map<int32_t, Timer> timers;
  int32_t next_id = 1;

  static Queue& OfThisThread() {
    thread_local Queue queue;
    return queue;
  }

  int32_t NewId() {
    while (timers.contains(next_id)) Advance();
    const int32_t id = next_id;
    Advance();
    return id;
  }

  void Advance() { next_id = next_id == std::numeric_limits<int32_t>::max() ? 1 : next_id + 1; }
};

Clock::duration IntervalOf(int32_t interval) {
  // A negative interval is a huge unsigned one to the system, which caps it at 2^31 - 1 ms.
  const int32_t ms = interval < 0 ? std::numeric_limits<int32_t>::max() : std::max(interval, kMinimumInterval);
  return std::chrono::milliseconds(ms);
}

// The first beat of the timer after now: missed periods are coalesced, not replayed.
Clock::time_point NextDue(const Timer& t, Clock::time_point now) {
  const auto missed = (now - t.due) / t.interval + 1;
  return t.due + missed * t.interval;
}

}  // namespace

int32_t SetThreadTimer(int32_t interval, TimerProcedure procedure) {
  Queue& queue = Queue::OfThisThread();
  if (queue.timers.size() >= kMaximumTimers) return 0;
  const int32_t id = queue.NewId();
  const Clock::duration every = IntervalOf(interval);
  queue.timers.emplace(id, Timer{procedure, every, Clock::now() + every});
  return id;
}

void KillThreadTimer(int32_t id) { Queue::OfThisThread().timers.erase(id); }

void RunPendingEvents() {
  Queue& queue = Queue::OfThisThread();
  const Clock::time_point now = Clock::now();
  std::vector<std::pair<Clock::time_point, int32_t>> due;
  for (const auto& [id, timer] : queue.timers) {
    if (timer.due <= now) due.emplace_back(timer.due, id);
  }
  std::sort(due.begin(), due.end());
  for (const auto& [when, id] : due) {
    // An earlier procedure of this pass may have killed this timer.
    const auto it = queue.timers.find(id);
    if (it == queue.timers.end() || it->second.due != when) continue;
    it->second.due = NextDue(it->second, now);
    it->second.procedure(id);
  }
}

int32_t MillisecondsUntilNextEvent() {
  const Queue& queue = Queue::OfThisThread();
  const auto next = std::min_element(queue.timers.begin(), queue.timers.end(),
                                     [](const auto& a, const auto& b) { return a.second.due < b.second.due; });
  if (next == queue.timers.end()) return -1;
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(next->second.due - Clock::now()).count();
  return static_cast<int32_t>(std::clamp<decltype(wait)>(wait, 0, std::numeric_limits<int32_t>::max()));
}

}  // namespace vmio
