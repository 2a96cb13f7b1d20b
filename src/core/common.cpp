#include "core/common.h"

#include "core/tick_source.h"

namespace vmio {

// The low 32 bits, as the system's own 32-bit tick counter gives them.
int32_t TickCount() { return static_cast<int32_t>(static_cast<uint32_t>(ClockMilliseconds())); }

int32_t TickDiff(int32_t start) { return TickDiff(start, TickCount()); }

int32_t TickDiff(int32_t start, int32_t end) {
  const int64_t s = start & 0x7FFFFFFF;
  const int64_t e = end & 0x7FFFFFFF;
  return static_cast<int32_t>(e >= s ? e - s : (int64_t{1} << 31) - s + e);
}

}  // namespace vmio
