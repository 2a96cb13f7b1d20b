// Thread timers on Windows: SetTimer and KillTimer with a timer procedure, delivered as
// WM_TIMER by the thread's message loop (the host's, or the library's pumping wait).
#include <windows.h>

#include <algorithm>
#include <limits>
#include <map>

#include "core/thread_timers.h"
#include "vmio/events.h"

namespace vmio {
namespace {

struct Timer {
  TimerProcedure procedure;
  DWORD interval;
  ULONGLONG due;  // when it should next fire, for MillisecondsUntilNextEvent
};

std::map<UINT_PTR, Timer>& Timers() {
  thread_local std::map<UINT_PTR, Timer> timers;
  return timers;
}

void CALLBACK OnTimer(HWND, UINT, UINT_PTR id, DWORD) {
  auto& timers = Timers();
  const auto it = timers.find(id);
  if (it == timers.end()) return;  // killed while its message was queued
  it->second.due = GetTickCount64() + it->second.interval;
  it->second.procedure(static_cast<int32_t>(id));
}

}  // namespace

int32_t SetThreadTimer(int32_t interval, TimerProcedure procedure) {
  const UINT_PTR id = SetTimer(nullptr, 0, static_cast<UINT>(interval), &OnTimer);
  if (id == 0 || id > static_cast<UINT_PTR>(std::numeric_limits<int32_t>::max())) {
    if (id != 0) KillTimer(nullptr, id);
    return 0;
  }
  // The system clamps the interval into its range; the same bounds keep the estimate close.
  const DWORD every = std::clamp<DWORD>(static_cast<DWORD>(interval), USER_TIMER_MINIMUM, USER_TIMER_MAXIMUM);
  Timers()[id] = Timer{procedure, every, GetTickCount64() + every};
  return static_cast<int32_t>(id);
}

void KillThreadTimer(int32_t id) {
  if (id <= 0) return;
  KillTimer(nullptr, static_cast<UINT_PTR>(id));
  Timers().erase(static_cast<UINT_PTR>(id));
}

// What a host's DoEvents does: every message waiting for this thread is dispatched.
void RunPendingEvents() {
  MSG msg;
  while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
    TranslateMessage(&msg);
    DispatchMessageW(&msg);
  }
}

int32_t MillisecondsUntilNextEvent() {
  const auto& timers = Timers();
  if (timers.empty()) return -1;
  const ULONGLONG now = GetTickCount64();
  ULONGLONG next = std::numeric_limits<ULONGLONG>::max();
  for (const auto& [id, timer] : timers) next = std::min(next, timer.due);
  return next <= now ? 0 : static_cast<int32_t>(std::min<ULONGLONG>(next - now, std::numeric_limits<int32_t>::max()));
}

}  // namespace vmio
