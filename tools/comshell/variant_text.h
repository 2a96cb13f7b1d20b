#pragma once
// Typed values of the line protocol as automation VARIANTs ("i4:3" <-> VT_I4 3).
#include <windows.h>

// After windows.h, which they need.
#include <oleauto.h>

#include <string>
#include <string_view>

#include "shell_syntax.h"

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

// A value as written on a shell line, as a VARIANT.
OwnedVariant ToVariant(cli::TypedValue value);
// The typed text of a result: as above, "object" for an object, "array:N" for an array.
std::string FormatTypedValue(const VARIANT& value);
}  // namespace vmio::comshell
