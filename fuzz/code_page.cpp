// Code page conversion both ways: never fails, and 1252 text survives a round trip.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <span>

#include "core/string_encoding.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  constexpr int32_t kPages[] = {vmio::kCodePage1252, vmio::kCodePageLatin1, vmio::kCodePageUtf8, 437, 0};
  const int32_t page = kPages[data[0] % std::size(kPages)];
  const std::span<const uint8_t> bytes(data + 1, size - 1);

  const std::string text = vmio::BytesToString(bytes, page);
  if (page == vmio::kCodePage1252 || page == vmio::kCodePageLatin1) {
    // Every byte has a character in these pages, so the bytes come back unchanged.
    const std::vector<uint8_t> back = vmio::StringToBytes(text, page);
    if (!std::equal(back.begin(), back.end(), bytes.begin(), bytes.end())) std::abort();
  }
  // Arbitrary input as text the other way.
  vmio::StringToBytes(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()), page);
  return 0;
}
