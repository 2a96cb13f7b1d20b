#include "core/string_encoding.h"

#include <algorithm>
#include <array>
#include <optional>

namespace vmio {
namespace {

// Code page 1252 bytes 0x80-0x9F; the undefined ones map to their own C1 code point.
constexpr std::array<char16_t, 32> k1252High = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                                0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                                0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                                0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

void AppendUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

// Decodes one UTF-8 sequence at pos and moves past it; nullopt on malformed input.
std::optional<char32_t> NextUtf8(std::string_view s, size_t& pos) {
  const auto b0 = static_cast<uint8_t>(s[pos]);
  if (b0 < 0x80) {
    ++pos;
    return b0;
  }
  const int extra = (b0 & 0xE0) == 0xC0 ? 1 : (b0 & 0xF0) == 0xE0 ? 2 : (b0 & 0xF8) == 0xF0 ? 3 : 0;
  if (extra == 0 || pos + extra >= s.size()) return std::nullopt;
  char32_t cp = b0 & (0x3F >> extra);
  for (int i = 1; i <= extra; ++i) {
    const auto b = static_cast<uint8_t>(s[pos + i]);
    if ((b & 0xC0) != 0x80) return std::nullopt;
    cp = (cp << 6) | (b & 0x3F);
  }
  pos += extra + 1;
  return cp;
}

std::optional<uint8_t> Encode1252(char32_t cp) {
  if (cp < 0x80 || (cp >= 0xA0 && cp <= 0xFF)) return static_cast<uint8_t>(cp);
  const auto it = std::find(k1252High.begin(), k1252High.end(), static_cast<char16_t>(cp));
  if (cp <= 0xFFFF && it != k1252High.end()) return static_cast<uint8_t>(0x80 + (it - k1252High.begin()));
  return std::nullopt;
}

bool IsUtf8(std::span<const uint8_t> bytes) {
  const std::string_view s(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  for (size_t pos = 0; pos < s.size();) {
    if (!NextUtf8(s, pos)) return false;
  }
  return true;
}

}  // namespace

std::string BytesToString(std::span<const uint8_t> bytes, int32_t codePage) {
  std::string out;
  switch (codePage) {
    case kCodePageUtf8:
      if (IsUtf8(bytes)) out.assign(bytes.begin(), bytes.end());
      return out;
    case kCodePage1252:
    case kCodePageLatin1:
      break;
    default:
      return out;
  }
  out.reserve(bytes.size());
  for (const uint8_t b : bytes) {
    if (b < 0x80) {
      out += static_cast<char>(b);
    } else {
      AppendUtf8(out, codePage == kCodePage1252 && b < 0xA0 ? k1252High[b - 0x80] : b);
    }
  }
  return out;
}

std::vector<uint8_t> StringToBytes(std::string_view text, int32_t codePage) {
  std::vector<uint8_t> out;
  if (codePage == kCodePageUtf8) {
    out.assign(text.begin(), text.end());
    return out;
  }
  if (codePage != kCodePage1252 && codePage != kCodePageLatin1) return out;
  out.reserve(text.size());
  for (size_t pos = 0; pos < text.size();) {
    const auto cp = NextUtf8(text, pos);
    if (!cp) {
      out.push_back('?');
      ++pos;
      continue;
    }
    std::optional<uint8_t> b =
        codePage == kCodePage1252 ? Encode1252(*cp) : (*cp <= 0xFF ? std::optional<uint8_t>(*cp) : std::nullopt);
    out.push_back(b.value_or('?'));
  }
  return out;
}

}  // namespace vmio
