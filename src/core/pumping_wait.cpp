#include "core/pumping_wait.h"

#include <algorithm>

#include "vmio/events.h"

namespace vmio {

bool PumpingWait(WaitHandle handle, WaitClock::time_point deadline) {
  for (;;) {
    RunPendingEvents();
    // The clock counts whole milliseconds, so the deadline's own millisecond may have begun
    // just before the wait did: the wait ends once the deadline is behind it, never early.
    const auto left = (deadline - WaitClock::now()).count();
    if (left < 0) return handle != kNoWaitHandle && WaitForHandle(handle, 0);
    int32_t slice = static_cast<int32_t>(std::clamp<decltype(left)>(left, 1, INT32_MAX));
    if (const int32_t next = MillisecondsUntilNextEvent(); next >= 0) slice = std::min(slice, next);
    if (IdleWait(handle, slice)) return true;
  }
}

bool WaitRunningEvents(WaitHandle handle, int32_t milliseconds) {
  return PumpingWait(handle, WaitClock::now() + std::chrono::milliseconds(std::max(milliseconds, 0)));
}

}  // namespace vmio
