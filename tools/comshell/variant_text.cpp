#include "variant_text.h"

#include <charconv>
#include <cstdint>

#include "escape_text.h"

namespace vmio::comshell {
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

OwnedVariant ToVariant(cli::TypedValue value) {
  OwnedVariant owned;
  VARIANT* v = owned.get();
  if (auto* text = std::get_if<std::string>(&value)) {
    const std::wstring wide = Utf16(*text);
    V_BSTR(v) = SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
    V_VT(v) = VT_BSTR;
  } else if (auto* b = std::get_if<bool>(&value)) {
    V_VT(v) = VT_BOOL;
    V_BOOL(v) = *b ? VARIANT_TRUE : VARIANT_FALSE;
  } else if (auto* u1 = std::get_if<uint8_t>(&value)) {
    V_VT(v) = VT_UI1;
    V_UI1(v) = *u1;
  } else if (auto* i2 = std::get_if<int16_t>(&value)) {
    V_VT(v) = VT_I2;
    V_I2(v) = *i2;
  } else if (auto* i4 = std::get_if<int32_t>(&value)) {
    V_VT(v) = VT_I4;
    V_I4(v) = *i4;
  } else if (auto* r8 = std::get_if<double>(&value)) {
    V_VT(v) = VT_R8;
    V_R8(v) = *r8;
  }
  return owned;
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

}  // namespace vmio::comshell
