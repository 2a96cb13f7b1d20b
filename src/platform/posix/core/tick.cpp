#include <time.h>

#include "core/common.h"

namespace vmio {

int32_t TickCount() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  const uint64_t ms = static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u;
  return static_cast<int32_t>(static_cast<uint32_t>(ms));
}

}  // namespace vmio
