#pragma once
// Typed values of the line protocol as automation VARIANTs ("i4:3" <-> VT_I4 3).
#include <windows.h>

// After windows.h, which they need.
#include <oleauto.h>

#include <optional>
#include <string>
#include <string_view>

namespace vmio::comshell {

std::string Utf8(BSTR text);
std::wstring Utf16(std::string_view text);

// Owns one VARIANT.
class OwnedVariant {
 public:
  OwnedVariant() { VariantInit(&v_); }
  ~OwnedVariant() { VariantClear(&v_); }
  OwnedVariant(OwnedVariant&& other) noexcept : v_(other.v_) { VariantInit(&other.v_); }
  OwnedVariant& operator=(OwnedVariant&&) = delete;
  OwnedVariant(const OwnedVariant&) = delete;
  OwnedVariant& operator=(const OwnedVariant&) = delete;
  VARIANT* get() { return &v_; }
  const VARIANT& operator*() const { return v_; }

 private:
  VARIANT v_;
};

// "empty", "bool:true", "u1:7", "i2:-3", "i4:42", "r8:0.5", "str:ESCAPED"; nothing when the
// text is malformed or a number is out of its type's range.
std::optional<OwnedVariant> ParseTypedValue(std::string_view text);
// The typed text of a result: as above, "object" for an object, "array:N" for an array.
std::string FormatTypedValue(const VARIANT& value);
// A decimal 32-bit integer, optionally negative, nothing else.
std::optional<int32_t> ParseInt32(std::string_view text);

}  // namespace vmio::comshell
