#pragma once
// Elapsed time on the system's 32-bit millisecond tick counter.
#include <cstdint>
#include <optional>

namespace vmio {

// Milliseconds since the system started, kept to 32 bits (wraps after about 49.7 days).
// Not a process clock: a cache whose last-read tick is 0 is stale on its first read. Read from
// the installed clock (core/tick_source.h), so a test clock moves it.
int32_t TickCount();

// Milliseconds from start to end (now when omitted). Both are taken to their low 31 bits;
// an end below the start means the counter wrapped: 2^31 - start + end.
int32_t TickDiff(int32_t start);
int32_t TickDiff(int32_t start, int32_t end);

// A driver's state cache: values read less than 501 ms ago are served from the port table, so a
// host polling every port costs about two requests a second per group. A cache never read is
// stale, whatever the tick counter says.
class StateCache {
 public:
  bool Stale() const { return !read_tick_ || TickDiff(*read_tick_) >= 501; }
  void MarkFresh() { read_tick_ = TickCount(); }
  void MarkStale() { read_tick_.reset(); }

 private:
  std::optional<int32_t> read_tick_;
};

}  // namespace vmio
