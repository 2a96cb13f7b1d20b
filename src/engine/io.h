#pragma once
// Io: one loop and the transports' state that belongs to it (a curl multi handle, a name
// resolver), so every exchange run on the loop shares them. The engine owns one; each thread
// has one for the blocking members (RunBlocking), made on its first exchange, so an object
// holds no descriptor before it talks to a device.
#include <memory>
#include <utility>
#include <vector>

#include "engine/loop.h"
#include "engine/task.h"
#include "engine/waits.h"

namespace vmio::engine {

class Io {
 public:
  // A transport's per-loop state: made on first use (with the Io), gone with the Io.
  class Service {
   public:
    virtual ~Service() = default;
  };

  Io() = default;
  Io(const Io&) = delete;
  Io& operator=(const Io&) = delete;
  ~Io();

  Loop& loop() { return loop_; }

  template <class S>
  S& Get() {
    static const char kKey = 0;
    for (auto& [key, service] : services_) {
      if (key == &kKey) return static_cast<S&>(*service);
    }
    auto made = std::make_unique<S>(*this);
    S& result = *made;
    services_.emplace_back(&kKey, std::move(made));
    return result;
  }

 private:
  Loop loop_;  // outlives the services, which unwatch and cancel on it as they go
  std::vector<std::pair<const void*, std::unique_ptr<Service>>> services_;
};

// The Io a blocking member runs its exchange on: the thread's own, or a fresh one when the
// thread's is running an exchange already (a call made from a handler inside another
// exchange must not turn that exchange's loop from within it).
class BlockingIo {
 public:
  BlockingIo();
  ~BlockingIo();
  BlockingIo(const BlockingIo&) = delete;
  BlockingIo& operator=(const BlockingIo&) = delete;
  Io& io() { return *io_; }

 private:
  Io* io_;
  std::unique_ptr<Io> own_;
};

// Runs an exchange to its end on the caller's thread: make(io) gives the task.
template <class Make>
auto RunBlocking(Make&& make) {
  BlockingIo lease;
  return RunToCompletion(lease.io().loop(), make(lease.io()));
}

}  // namespace vmio::engine
