#include "core/pumping_wait.h"

#include <algorithm>

#include "vmio/events.h"

namespace vmio {

bool PumpingWait(WaitHandle handle, WaitClock::time_point deadline) {
  for (;;) {
    RunPendingEvents();
    const auto left = (deadline - WaitClock::now()).count();
    if (left <= 0) return handle != kNoWaitHandle && WaitForHandle(handle, 0);
    int32_t slice = static_cast<int32_t>(std::min<decltype(left)>(left, INT32_MAX));
    if (const int32_t next = MillisecondsUntilNextEvent(); next >= 0) slice = std::min(slice, next);
    if (IdleWait(handle, slice)) return true;
  }
}

bool WaitRunningEvents(WaitHandle handle, int32_t milliseconds) {
  return PumpingWait(handle, WaitClock::now() + std::chrono::milliseconds(std::max(milliseconds, 0)));
}

}  // namespace vmio
