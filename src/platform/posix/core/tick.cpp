#include <time.h>

#include "core/tick_source.h"

namespace vmio {

int64_t SystemMilliseconds() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

}  // namespace vmio
