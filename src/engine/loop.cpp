#include "engine/loop.h"

#include <algorithm>
#include <vector>

#include "core/tick_source.h"
#include "engine/poll_descriptors.h"

namespace vmio::engine {

int64_t NowMs() { return ClockMilliseconds(); }

void Loop::Watch(int fd, int interest, Handler handler) {
  watches_[fd] = WatchEntry{interest, std::make_shared<Handler>(std::move(handler))};
  if (listener_) listener_(fd, interest);
}

void Loop::Unwatch(int fd) {
  if (watches_.erase(fd) && listener_) listener_(fd, 0);
}

Loop::TimerId Loop::AddTimer(int64_t due, std::function<void()> handler) {
  const TimerId id{due, ++timer_count_};
  timers_.emplace(id, std::move(handler));
  return id;
}

void Loop::CancelTimer(TimerId id) { timers_.erase(id); }

std::vector<std::pair<int, int>> Loop::WatchedDescriptors() const {
  std::vector<std::pair<int, int>> watched;
  watched.reserve(watches_.size());
  for (const auto& [fd, entry] : watches_) watched.emplace_back(fd, entry.interest);
  return watched;
}

int64_t Loop::MillisecondsUntilNextTimer() const {
  if (timers_.empty()) return -1;
  return std::max<int64_t>(0, timers_.begin()->first.first - NowMs());
}

void Loop::Dispatch(int fd, int ready) {
  const auto it = watches_.find(fd);
  if (it == watches_.end()) return;
  const std::shared_ptr<Handler> handler = it->second.handler;
  const int bits = ready & it->second.interest;
  if (bits) (*handler)(bits);
}

void Loop::RunDueTimers() {
  const int64_t now = NowMs();
  const uint64_t added_before = timer_count_;
  // Each turn takes the earliest timer again: a handler may have cancelled any of the others.
  for (auto it = timers_.begin(); it != timers_.end() && it->first.first <= now;) {
    if (it->first.second > added_before) {
      ++it;  // added by a handler of this call: it waits for the next one
      continue;
    }
    std::function<void()> handler = std::move(it->second);
    timers_.erase(it);
    handler();
    it = timers_.begin();
  }
}

bool Loop::RunOnce(int max_wait_ms) {
  if (watches_.empty() && timers_.empty()) return false;
  int64_t wait = MillisecondsUntilNextTimer();
  if (max_wait_ms >= 0 && (wait < 0 || wait > max_wait_ms)) wait = max_wait_ms;
  std::vector<PolledDescriptor> polled;
  polled.reserve(watches_.size());
  for (const auto& [fd, entry] : watches_) polled.push_back({fd, entry.interest});
  if (PollDescriptors(polled, static_cast<int>(std::min<int64_t>(wait, INT32_MAX))) > 0) {
    for (const PolledDescriptor& p : polled) {
      if (p.ready) Dispatch(p.fd, p.ready);
    }
  }
  RunDueTimers();
  return true;
}

}  // namespace vmio::engine
