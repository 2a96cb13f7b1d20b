#pragma once
// The system's thread timers, one implementation per platform (src/platform/<os>/core/):
// what SetTimer and KillTimer with a timer procedure are on a Windows message loop. A timer
// belongs to the thread that set it, and its procedure runs only on that thread while it lets
// events run (RunPendingEvents, or a library wait that pumps).
#include <cstdint>

namespace vmio {

using TimerProcedure = void (*)(int32_t id);

// Starts a periodic timer that calls procedure(id) every interval milliseconds and returns
// its identifier, or 0 when the system refuses another timer. The system decides what an
// interval out of its range means.
int32_t SetThreadTimer(int32_t interval, TimerProcedure procedure);

// Stops the timer; a call of its procedure that was already due does not happen. Unknown
// identifiers (0 included) are ignored.
void KillThreadTimer(int32_t id);

}  // namespace vmio
