#pragma once
// Letting the library's timers run. The library starts no threads: timer callbacks run only
// on the thread that started them, when its host lets pending events run.
#include <cstdint>

namespace vmio {

// Runs every callback whose timer is due, once, and returns.
void RunPendingEvents();

}  // namespace vmio
