#pragma once
// Waiting on the caller's thread while the library's timers run, as a message loop would.
#include <atomic>
#include <cstdint>

namespace vmio::cli {

// Waits ms milliseconds, letting pending events run every few milliseconds. Returns early,
// with false, once stop (when given) becomes true.
bool WaitRunningEvents(int64_t ms, const std::atomic<bool>* stop = nullptr);

}  // namespace vmio::cli
