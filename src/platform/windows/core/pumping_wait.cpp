// Waiting on Windows: MsgWaitForMultipleObjects, which also wakes when a message arrives, so
// the thread's timers (and any other message the host's objects need) are dispatched while
// the library waits.
#include <windows.h>

#include "core/pumping_wait.h"

namespace vmio {

bool WaitForHandle(WaitHandle handle, int32_t milliseconds) {
  HANDLE h = reinterpret_cast<HANDLE>(handle);
  const DWORD count = handle == kNoWaitHandle ? 0 : 1;
  const DWORD r = MsgWaitForMultipleObjectsEx(count, count ? &h : nullptr, static_cast<DWORD>(milliseconds),
                                              QS_ALLINPUT, MWMO_INPUTAVAILABLE);
  return count == 1 && r == WAIT_OBJECT_0;
}

}  // namespace vmio
