#include "engine/poll_descriptors.h"

#include <winsock2.h>

#include <vector>

#include "engine/loop.h"

namespace vmio::engine {

int PollDescriptors(std::span<PolledDescriptor> descriptors, int timeout_ms) {
  if (descriptors.empty()) {
    // WSAPoll refuses an empty set: the wait is for the next timer only.
    if (timeout_ms != 0) Sleep(timeout_ms < 0 ? INFINITE : static_cast<DWORD>(timeout_ms));
    return 0;
  }
  std::vector<WSAPOLLFD> polled;
  polled.reserve(descriptors.size());
  for (const PolledDescriptor& d : descriptors) {
    polled.push_back(
        {static_cast<SOCKET>(d.fd),
         static_cast<SHORT>((d.interest & kReadable ? POLLRDNORM : 0) | (d.interest & kWritable ? POLLWRNORM : 0)), 0});
  }
  const int n = WSAPoll(polled.data(), static_cast<ULONG>(polled.size()), timeout_ms);
  if (n <= 0) return 0;
  for (size_t i = 0; i < polled.size(); ++i) {
    const SHORT revents = polled[i].revents;
    int ready = 0;
    if (revents & (POLLERR | POLLHUP | POLLNVAL)) ready = kReadable | kWritable;
    if (revents & POLLRDNORM) ready |= kReadable;
    if (revents & POLLWRNORM) ready |= kWritable;
    descriptors[i].ready = ready & descriptors[i].interest;
  }
  return n;
}

}  // namespace vmio::engine
