#pragma once
// The one wait of the library that lets events run: until a deadline, or until what it waits
// for is ready to read, the thread's due timers run meanwhile and the thread otherwise sleeps.
// The serial reply wait, the command line's sleep and watch use it; a caller that waits for
// something in steps (read a line, check it, wait again) calls it again with the same deadline.
#include <chrono>
#include <cstdint>

#include "vmio/events.h"  // WaitHandle, and the host's form of this wait

namespace vmio {

using WaitClock = std::chrono::steady_clock;

// True as soon as handle is ready to read (data, end of stream or an error a read reports),
// false once the deadline has passed. Due timers run at least once, even when the deadline
// has already passed.
bool PumpingWait(WaitHandle handle, WaitClock::time_point deadline);

// The platform's idle wait: until handle is ready or milliseconds pass, or (where the system
// delivers events by itself) an event arrives. True when handle is ready.
bool WaitForHandle(WaitHandle handle, int32_t milliseconds);

}  // namespace vmio
