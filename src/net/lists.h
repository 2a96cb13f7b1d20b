#pragma once
// Lists: cutting a run of bytes out of a byte array.
#include <cstdint>
#include <span>
#include <vector>

namespace vmio {

// A new array of Length bytes of Source from Start (a plain offset). Length -1, or one past
// the end, takes everything up to the end; Length 0 gives an empty array. A Start beyond the
// end, before the beginning, or a Length below -1 raises 9 (subscript out of range).
std::vector<uint8_t> SubArray(std::span<const uint8_t> Source, int32_t Start, int32_t Length);

}  // namespace vmio
