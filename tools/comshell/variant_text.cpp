#include "variant_text.h"

#include <charconv>
#include <cstdint>
#include <limits>

#include "escape_text.h"

namespace vmio::comshell {
namespace {

template <class T>
std::optional<T> ParseWhole(std::string_view text) {
  T value{};
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::optional<int64_t> InRange(std::string_view digits, int64_t low, int64_t high) {
  const auto n = ParseWhole<int64_t>(digits);
  if (!n || *n < low || *n > high) return std::nullopt;
  return n;
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

}  // namespace

std::string Utf8(BSTR text) {
  const int length = text ? static_cast<int>(SysStringLen(text)) : 0;
  if (length == 0) return {};
  const int n = WideCharToMultiByte(CP_UTF8, 0, text, length, nullptr, 0, nullptr, nullptr);
  std::string out(static_cast<size_t>(n), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, length, out.data(), n, nullptr, nullptr);
  return out;
}

std::wstring Utf16(std::string_view text) {
  if (text.empty()) return {};
  const int n = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
  std::wstring out(static_cast<size_t>(n), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), n);
  return out;
}

std::optional<OwnedVariant> ParseTypedValue(std::string_view text) {
  OwnedVariant value;
  VARIANT* v = value.get();
  if (text == "empty") return value;
  const size_t colon = text.find(':');
  if (colon == std::string_view::npos) return std::nullopt;
  const std::string_view type = text.substr(0, colon);
  const std::string_view rest = text.substr(colon + 1);
  if (type == "str") {
    const auto unescaped = cli::UnescapeText(rest);
    if (!unescaped) return std::nullopt;
    const std::wstring wide = Utf16(*unescaped);
    V_BSTR(v) = SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
    V_VT(v) = VT_BSTR;
  } else if (type == "bool" && (EqualsNoCase(rest, "true") || EqualsNoCase(rest, "false"))) {
    V_VT(v) = VT_BOOL;
    V_BOOL(v) = EqualsNoCase(rest, "true") ? VARIANT_TRUE : VARIANT_FALSE;
  } else if (type == "u1") {
    const auto n = InRange(rest, 0, 255);
    if (!n) return std::nullopt;
    V_VT(v) = VT_UI1;
    V_UI1(v) = static_cast<BYTE>(*n);
  } else if (type == "i2") {
    const auto n = InRange(rest, std::numeric_limits<int16_t>::min(), std::numeric_limits<int16_t>::max());
    if (!n) return std::nullopt;
    V_VT(v) = VT_I2;
    V_I2(v) = static_cast<SHORT>(*n);
  } else if (type == "i4") {
    const auto n = InRange(rest, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max());
    if (!n) return std::nullopt;
    V_VT(v) = VT_I4;
    V_I4(v) = static_cast<LONG>(*n);
  } else if (type == "r8") {
    const auto d = ParseWhole<double>(rest);
    if (!d) return std::nullopt;
    V_VT(v) = VT_R8;
    V_R8(v) = *d;
  } else {
    return std::nullopt;
  }
  return value;
}

std::string FormatTypedValue(const VARIANT& value) {
  if (V_VT(&value) & VT_ARRAY) {
    LONG low = 0, high = -1;
    SafeArrayGetLBound(V_ARRAY(&value), 1, &low);
    SafeArrayGetUBound(V_ARRAY(&value), 1, &high);
    return "array:" + std::to_string(high - low + 1);
  }
  switch (V_VT(&value)) {
    case VT_EMPTY:
      return "empty";
    case VT_BOOL:
      return V_BOOL(&value) != VARIANT_FALSE ? "bool:true" : "bool:false";
    case VT_UI1:
      return "u1:" + std::to_string(V_UI1(&value));
    case VT_I2:
      return "i2:" + std::to_string(V_I2(&value));
    case VT_I4:
      return "i4:" + std::to_string(V_I4(&value));
    case VT_R8: {
      char buffer[64];
      const auto result = std::to_chars(buffer, buffer + sizeof buffer, V_R8(&value));
      return "r8:" + std::string(buffer, result.ptr);
    }
    case VT_BSTR:
      return "str:" + cli::EscapeText(Utf8(V_BSTR(&value)));
    case VT_DISPATCH:
    case VT_UNKNOWN:
      return "object";
    default:
      return "vt:" + std::to_string(V_VT(&value));
  }
}

std::optional<int32_t> ParseInt32(std::string_view text) { return ParseWhole<int32_t>(text); }

}  // namespace vmio::comshell
