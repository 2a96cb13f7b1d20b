#include "net/lists.h"

#include "core/errors.h"

namespace vmio {

std::vector<uint8_t> SubArray(std::span<const uint8_t> Source, int32_t Start, int32_t Length) {
  const int64_t available = static_cast<int64_t>(Source.size()) - Start;
  int64_t length = Length;
  if (length > available || length == -1) length = available;
  if (length == 0) return {};
  if (length < 0 || Start < 0) Raise(kSubscriptOutOfRange);
  const auto first = Source.begin() + Start;
  return std::vector<uint8_t>(first, first + length);
}

}  // namespace vmio
