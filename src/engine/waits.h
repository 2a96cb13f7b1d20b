#pragma once
// What a task waits for on a loop: a descriptor (with a deadline) or time. Each wait is an
// object in the waiting task's frame; if the task is destroyed while it waits, the wait's
// destructor takes its descriptor and timer off the loop, so nothing fires into a freed frame.
#include <coroutine>
#include <cstdint>
#include <optional>

#include "engine/loop.h"
#include "engine/task.h"

namespace vmio::engine {

// co_await Ready(loop, fd, kReadable, deadline): true once fd is ready for the interest,
// false once the deadline (NowMs() time) has passed.
class Ready {
 public:
  Ready(Loop& loop, int fd, int interest, int64_t deadline)
      : loop_(loop), fd_(fd), interest_(interest), deadline_(deadline) {}
  Ready(const Ready&) = delete;
  Ready& operator=(const Ready&) = delete;
  ~Ready() { Clear(); }

  bool await_ready() const noexcept { return false; }
  void await_suspend(std::coroutine_handle<> waiting) {
    waiting_ = waiting;
    loop_.Watch(fd_, interest_, [this](int) { Finish(true); });
    watching_ = true;
    timer_ = loop_.AddTimer(deadline_, [this] {
      timer_.reset();
      Finish(false);
    });
  }
  bool await_resume() const noexcept { return ready_; }

 private:
  void Finish(bool ready) {
    ready_ = ready;
    Clear();
    waiting_.resume();
  }
  void Clear() {
    if (watching_) loop_.Unwatch(fd_);
    watching_ = false;
    if (timer_) loop_.CancelTimer(*timer_);
    timer_.reset();
  }

  Loop& loop_;
  const int fd_;
  const int interest_;
  const int64_t deadline_;
  std::coroutine_handle<> waiting_;
  bool watching_ = false;
  std::optional<Loop::TimerId> timer_;
  bool ready_ = false;
};

// co_await Sleep(loop, ms): resumes once ms have passed.
class Sleep {
 public:
  Sleep(Loop& loop, int64_t ms) : loop_(loop), ms_(ms) {}
  Sleep(const Sleep&) = delete;
  Sleep& operator=(const Sleep&) = delete;
  ~Sleep() {
    if (timer_) loop_.CancelTimer(*timer_);
  }

  bool await_ready() const noexcept { return ms_ <= 0; }
  void await_suspend(std::coroutine_handle<> waiting) {
    timer_ = loop_.AddTimer(NowMs() + ms_, [this, waiting] {
      timer_.reset();
      waiting.resume();
    });
  }
  void await_resume() const noexcept {}

 private:
  Loop& loop_;
  const int64_t ms_;
  std::optional<Loop::TimerId> timer_;
};

// Runs a task to its end on a loop of its own, turning the loop on this thread meanwhile:
// what a blocking member does with the same exchange the engine runs concurrently.
template <typename T>
T RunToCompletion(Loop& loop, Task<T> task) {
  bool done = false;
  task.Start([&done] { done = true; });
  while (!done) loop.RunOnce(-1);
  return task.Result();
}

}  // namespace vmio::engine
