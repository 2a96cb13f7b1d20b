#include "engine/poll_descriptors.h"

#include <poll.h>

#include <vector>

#include "engine/loop.h"

namespace vmio::engine {

int PollDescriptors(std::span<PolledDescriptor> descriptors, int timeout_ms) {
  std::vector<pollfd> polled;
  polled.reserve(descriptors.size());
  for (const PolledDescriptor& d : descriptors) {
    polled.push_back(
        {d.fd, static_cast<short>((d.interest & kReadable ? POLLIN : 0) | (d.interest & kWritable ? POLLOUT : 0)), 0});
  }
  const int n = ::poll(polled.data(), polled.size(), timeout_ms);
  if (n <= 0) return 0;
  for (size_t i = 0; i < polled.size(); ++i) {
    const short revents = polled[i].revents;
    int ready = 0;
    if (revents & (POLLERR | POLLHUP | POLLNVAL)) ready = kReadable | kWritable;
    if (revents & POLLIN) ready |= kReadable;
    if (revents & POLLOUT) ready |= kWritable;
    descriptors[i].ready = ready & descriptors[i].interest;
  }
  return n;
}

}  // namespace vmio::engine
