// Timer callbacks without a message loop: each thread keeps a registry of its timers and
// runs the due ones when its host lets events run. The registry holds a strong reference to
// each target while its timer runs, as the host's timer collection would.
#include <algorithm>
#include <chrono>
#include <limits>
#include <map>
#include <utility>
#include <vector>

#include "core/errors.h"
#include "vmio/events.h"

namespace vmio {
namespace {

using Clock = std::chrono::steady_clock;

// The system timers' limits: shorter intervals are raised to the minimum, and a thread may
// hold only so many timers.
constexpr int32_t kMinimumInterval = 10;
constexpr size_t kMaximumTimers = 10000;

struct Timer {
  std::shared_ptr<Callbackable> target;
  Clock::duration interval{};
  Clock::time_point due{};
  bool running = false;  // false for the entry of a failed start, which never fires
};

struct Registry {
  std::map<int32_t, Timer> timers;
  int32_t next_id = 1;

  ~Registry() {
    // Targets released at thread exit may still look at the registry from their destructors.
    std::map<int32_t, Timer> doomed;
    doomed.swap(timers);
  }

  static Registry& OfThisThread() {
    thread_local Registry registry;
    return registry;
  }

  int32_t NewId() {
    while (timers.contains(next_id)) Advance();
    const int32_t id = next_id;
    Advance();
    return id;
  }

  void Advance() { next_id = next_id == std::numeric_limits<int32_t>::max() ? 1 : next_id + 1; }

  size_t RunningCount() const { return timers.size() - (timers.contains(0) ? 1 : 0); }
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

int32_t StartCallbackTimer(std::shared_ptr<Callbackable> target, int32_t interval) {
  Registry& registry = Registry::OfThisThread();
  Timer timer;
  timer.target = std::move(target);
  int32_t id = 0;
  if (registry.RunningCount() < kMaximumTimers) {
    id = registry.NewId();
    timer.interval = IntervalOf(interval);
    timer.due = Clock::now() + timer.interval;
    timer.running = true;
  }
  if (!registry.timers.try_emplace(id, std::move(timer)).second) Raise(457);
  return id;
}

void StopCallbackTimer(int32_t id) {
  Registry& registry = Registry::OfThisThread();
  const auto it = registry.timers.find(id);
  if (it == registry.timers.end()) Raise(5);
  // Released after the entry is gone, so a destructor that stops other timers finds the
  // registry consistent.
  const std::shared_ptr<Callbackable> target = std::move(it->second.target);
  registry.timers.erase(it);
}

void RunPendingEvents() {
  Registry& registry = Registry::OfThisThread();
  const Clock::time_point now = Clock::now();
  std::vector<std::pair<Clock::time_point, int32_t>> due;
  for (const auto& [id, timer] : registry.timers) {
    if (timer.running && timer.due <= now) due.emplace_back(timer.due, id);
  }
  std::sort(due.begin(), due.end());
  for (const auto& [when, id] : due) {
    // An earlier callback of this pass may have stopped this timer.
    const auto it = registry.timers.find(id);
    if (it == registry.timers.end() || it->second.due != when) continue;
    it->second.due = NextDue(it->second, now);
    // Our own reference: the callback may stop its own timer.
    const std::shared_ptr<Callbackable> target = it->second.target;
    if (!target) continue;
    try {
      target->Callback();
    } catch (...) {
      // An error in a callback neither reaches the host nor stops the timer.
    }
  }
}

int32_t MillisecondsUntilNextEvent() {
  const Registry& registry = Registry::OfThisThread();
  const Timer* next = nullptr;
  for (const auto& [id, timer] : registry.timers) {
    if (timer.running && (!next || timer.due < next->due)) next = &timer;
  }
  if (!next) return -1;
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(next->due - Clock::now()).count();
  return static_cast<int32_t>(std::clamp<decltype(wait)>(wait, 0, std::numeric_limits<int32_t>::max()));
}

}  // namespace vmio
