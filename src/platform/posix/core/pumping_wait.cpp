// Waiting on POSIX: poll, which sleeps until the descriptor is ready or the time passes.
// Timers are not delivered by the system here, so the caller's slice ends at the next one.
// This is the system clock's sleep, so it keeps time on the system clock whatever clock the
// library reads.
#include <poll.h>

#include <cerrno>
#include <chrono>

#include "core/pumping_wait.h"

namespace vmio {

bool WaitForHandle(WaitHandle handle, int32_t milliseconds) {
  pollfd pfd{static_cast<int>(handle), POLLIN, 0};
  // A negative descriptor is ignored by poll, which then just sleeps.
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    const int ready = ::poll(&pfd, 1, static_cast<int>(left > 0 ? left : 0));
    if (ready > 0) return pfd.revents != 0;
    if (ready == 0 || errno != EINTR || left <= 0) return false;
  }
}

}  // namespace vmio
