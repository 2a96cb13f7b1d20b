#pragma once
// The event loop every concurrent device exchange runs on: descriptors to watch and timers,
// nothing else. It starts no threads and never blocks except in RunOnce, so a host can drive
// it from its own loop instead (epoll, GLib, Qt, libuv, asyncio):
//   - WatchedDescriptors() and a watch listener tell it what to watch, and for what;
//   - MillisecondsUntilNextTimer() how long it may sleep;
//   - Dispatch(fd, ready) when a descriptor is ready, RunDueTimers() when time has passed.
// A loop belongs to the thread that made it. Handlers may watch, unwatch, add and cancel
// timers (their own included) while they run; a descriptor's readiness is level-triggered,
// so a handler must tolerate a spurious call (a read that would block).
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vmio::engine {

enum Interest : int { kReadable = 1, kWritable = 2 };

// Milliseconds on the library's clock (core/tick_source.h), for deadlines.
int64_t NowMs();

class Loop {
 public:
  // ready: the Interest bits that are ready; an error or hang-up reports every watched bit,
  // so the handler's next read or write sees it.
  using Handler = std::function<void(int ready)>;
  using TimerId = std::pair<int64_t, uint64_t>;  // due time, then order of adding
  // Told of every change of a descriptor's interest: 0 once it is no longer watched.
  using WatchListener = std::function<void(int fd, int interest)>;

  Loop() = default;
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  // Watches fd for interest (Interest bits), replacing an earlier watch of it.
  void Watch(int fd, int interest, Handler handler);
  void Unwatch(int fd);
  // Calls handler once, at due (NowMs() time) or as soon after as the loop runs.
  TimerId AddTimer(int64_t due, std::function<void()> handler);
  // Cancels a timer that has not run; unknown ids are ignored.
  void CancelTimer(TimerId id);

  // One turn: waits until a descriptor is ready, the next timer is due or max_wait_ms pass
  // (-1: no limit but the timers), then runs what is ready and what is due. False when there
  // was nothing to wait for (no descriptor, no timer).
  bool RunOnce(int max_wait_ms);

  // Host-loop integration.
  std::vector<std::pair<int, int>> WatchedDescriptors() const;
  void SetWatchListener(WatchListener listener) { listener_ = std::move(listener); }
  // Until the next timer is due (0 when one is due now), or -1 when there is none.
  int64_t MillisecondsUntilNextTimer() const;
  // Runs fd's handler for ready; nothing when fd is not watched (any more).
  void Dispatch(int fd, int ready);
  // Runs the timers due now, each once; timers they add for now wait for the next call.
  void RunDueTimers();

  size_t Watches() const { return watches_.size(); }
  size_t Timers() const { return timers_.size(); }

 private:
  struct WatchEntry {
    int interest;
    std::shared_ptr<Handler> handler;  // shared so a running handler outlives its unwatch
  };
  std::unordered_map<int, WatchEntry> watches_;
  std::map<TimerId, std::function<void()>> timers_;
  uint64_t timer_count_ = 0;
  WatchListener listener_;
};

}  // namespace vmio::engine
