#pragma once
// The one wait of the library that lets events run: until a deadline, or until what it waits
// for is ready to read, the thread's due timers run meanwhile and the thread otherwise sleeps.
// The serial reply wait, the command line's sleep and watch use it; a caller that waits for
// something in steps (read a line, check it, wait again) calls it again with the same deadline.
//
// Deadlines are on WaitClock, the installed clock (core/tick_source.h). The wait sleeps through
// the installed clock's Idle, so a test clock decides how much real time a wait costs. The
// rule the test programs' clock keeps (tests/support/test_clock.h), and why it is sound:
// - It stands still unless a test advances it or a wait sleeps; a sleep with nothing to wait
//   for (kNoWaitHandle) moves it at once to the deadline or the next timer's beat, whichever
//   comes first.
// - A sleep on a handle first waits on the system clock for the handle, for the shorter of the
//   sleep and the clock's quiet period, and moves the clock only if nothing arrived. A peer
//   on another thread or process (a simulator) that answers within the quiet period is seen
//   exactly as with the system clock; one that does not is taken for silent. A test whose peer
//   answers late on purpose, or whose peer's delays are measured on the system clock, keeps
//   the system clock.
// - Code that loops on the clock without sleeping (draining a line that never stops sending)
//   never ends under a clock that stands still: such cases keep the system clock too.
#include <chrono>
#include <cstdint>

#include "core/tick_source.h"  // WaitClock
#include "vmio/events.h"       // WaitHandle, and the host's form of this wait

namespace vmio {

// True as soon as handle is ready to read (data, end of stream or an error a read reports),
// false once the deadline has passed. Due timers run at least once, even when the deadline
// has already passed.
bool PumpingWait(WaitHandle handle, WaitClock::time_point deadline);

// The platform's idle wait: until handle is ready or milliseconds pass, or (where the system
// delivers events by itself) an event arrives. True when handle is ready.
bool WaitForHandle(WaitHandle handle, int32_t milliseconds);

}  // namespace vmio
