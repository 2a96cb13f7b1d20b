#include "core/common.h"

namespace vmio {

int32_t TickDiff(int32_t start) { return TickDiff(start, TickCount()); }

int32_t TickDiff(int32_t start, int32_t end) {
  const int64_t s = start & 0x7FFFFFFF;
  const int64_t e = end & 0x7FFFFFFF;
  return static_cast<int32_t>(e >= s ? e - s : (int64_t{1} << 31) - s + e);
}

}  // namespace vmio
