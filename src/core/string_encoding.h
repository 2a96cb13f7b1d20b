#pragma once
// Converting between device bytes and the library's (UTF-8) strings in a Windows code page.
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vmio {

inline constexpr int32_t kCodePage1252 = 1252;  // Western European; what devices speak
inline constexpr int32_t kCodePageLatin1 = 28591;
inline constexpr int32_t kCodePageUtf8 = 65001;

// Bytes in the code page to text. Bytes 0x81, 0x8D, 0x8F, 0x90 and 0x9D, undefined in 1252,
// become U+0081 etc., as Windows converts them. An unknown code page or invalid UTF-8 input
// yields "" (conversions never raise).
std::string BytesToString(std::span<const uint8_t> bytes, int32_t codePage);
// Text to bytes in the code page; characters the code page lacks become '?'.
std::vector<uint8_t> StringToBytes(std::string_view text, int32_t codePage);

}  // namespace vmio
