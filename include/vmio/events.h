#pragma once
/// @file
/// Timer callbacks and letting them run.
///
/// The library starts no threads: a timer belongs to the thread that started it, and its
/// callbacks run only on that thread, when its host lets pending events run, either by calling
/// RunPendingEvents or inside a library call that waits and lets events run meanwhile (the
/// serial reply wait). A host with its own poll/epoll loop asks MillisecondsUntilNextEvent how
/// long it may sleep.
#include <cstdint>
#include <memory>

#include "vmio/callbackable.h"
#include "vmio/export.h"

namespace vmio {

/// Starts a periodic timer that calls target->Callback() every interval milliseconds (an
/// interval below 10 ms counts as 10, a negative one as the longest, as the system timers
/// do) and returns its identifier (never 0). The timer holds a strong reference to target
/// until it is stopped. A thread runs at most 10000 timers; a start beyond that fails, and the
/// failed start is registered under identifier 0 (so a second failed start raises 457 until
/// StopCallbackTimer(0)).
VMIO_API int32_t StartCallbackTimer(std::shared_ptr<Callbackable> target, int32_t interval);

/// Stops the timer and releases its target; its callback never runs again, even if it was
/// already due. Raises 5 when this thread has no timer with that identifier.
VMIO_API void StopCallbackTimer(int32_t id);

/// Runs, once each, the callbacks of this thread's timers that are due, then returns. A timer
/// that missed several periods fires once; its next time stays on its original beat.
VMIO_API void RunPendingEvents();

/// Milliseconds until this thread's next timer is due (0 when one is due now), or -1 when
/// no timer is running.
VMIO_API int32_t MillisecondsUntilNextEvent();

/// What a wait can wait for: a file descriptor on POSIX, a HANDLE on Windows.
using WaitHandle = std::intptr_t;
inline constexpr WaitHandle kNoWaitHandle = -1;  ///< wait for the time only

/// Waits up to milliseconds (0: just looks) for handle to become ready to read (data, end of
/// stream or an error a read reports), running this thread's timer callbacks as they fall due
/// meanwhile; otherwise the thread sleeps. Returns true as soon as handle is ready, false once
/// the time has passed (always false for kNoWaitHandle). Due callbacks run at least once, even
/// for 0 milliseconds; a negative time counts as 0. A host without its own event loop uses it
/// to sleep, or to wait for its own descriptor (a Ctrl-C pipe), without stalling the timers.
VMIO_API bool WaitRunningEvents(WaitHandle handle, int32_t milliseconds);

}  // namespace vmio
