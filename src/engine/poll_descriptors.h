#pragma once
// The one system wait of the engine loop, one implementation per platform
// (src/platform/<os>/engine/): poll on POSIX, WSAPoll on Windows, where the engine watches
// sockets only.
#include <span>

namespace vmio::engine {

struct PolledDescriptor {
  int fd;
  int interest;   // Interest bits to wait for
  int ready = 0;  // set: the bits that are ready; an error or hang-up sets every watched bit
};

// Waits until a descriptor is ready or timeout_ms pass (-1: no limit; with no descriptors it
// just sleeps), then fills in ready. Returns how many are ready (0 on time-out or interrupt).
int PollDescriptors(std::span<PolledDescriptor> descriptors, int timeout_ms);

}  // namespace vmio::engine
