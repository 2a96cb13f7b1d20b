#pragma once
// The library's one clock. The tick (TickCount), the deadlines of the pumping wait (WaitClock)
// and the thread timers of POSIX all read it, so replacing it in one place moves them together.
//
// Test seam: SetTickSourceForTesting installs another source for the whole process. It lives
// here rather than in a link-time substitute so one test program can hold both the cases that
// advance a test clock and the cases that prove the system clock is wired. It cannot reach a
// host of the shipped library: it is not marked VMIO_API, so libvmio.so does not export it, and
// no installed header declares it. Only the test programs, which link the layers' static
// libraries and include src/, call it.
#include <chrono>
#include <cstdint>

namespace vmio {

// Milliseconds since the system started, 64 bits wide (never wraps); one implementation per
// platform (src/platform/<os>/core/tick.cpp).
int64_t SystemMilliseconds();

// A replacement for the system clock.
class TickSource {
 public:
  // Milliseconds on this clock; never goes back.
  virtual int64_t Milliseconds() = 0;
  // The pumping wait's sleep on a WaitHandle (core/pumping_wait.h): what WaitForHandle is on
  // the system clock. True when handle is ready; false once milliseconds have passed on this
  // clock.
  virtual bool Idle(std::intptr_t handle, int32_t milliseconds) = 0;

 protected:
  ~TickSource() = default;
};

// Installs source for every thread (nullptr puts the system clock back). The caller keeps it
// alive until then. For the test programs only (see above).
void SetTickSourceForTesting(TickSource* source);

// Milliseconds on the installed clock.
int64_t ClockMilliseconds();

// The installed clock's idle wait: its Idle, or WaitForHandle on the system clock.
bool IdleWait(std::intptr_t handle, int32_t milliseconds);

// The installed clock as a std::chrono clock, for deadlines: WaitClock::now() + 5s.
struct WaitClock {
  using rep = int64_t;
  using period = std::milli;
  using duration = std::chrono::milliseconds;
  using time_point = std::chrono::time_point<WaitClock>;
  static constexpr bool is_steady = true;
  static time_point now() { return time_point(duration(ClockMilliseconds())); }
};

}  // namespace vmio
