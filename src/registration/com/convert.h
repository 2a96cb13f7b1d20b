#pragma once
// Values across the automation boundary: BSTR (UTF-16) and UTF-8 text, VARIANT and Variant.
#include <windows.h>

// After windows.h, which they need.
#include <oleauto.h>

#include <string>

#include "platform/windows/core/wide_text.h"
#include "vmio/variant.h"

namespace vmio::com {

// A new BSTR the caller frees; raises 7 when there is no memory for it.
BSTR NewBstr(const std::string& text);

// What a host passed (by value or by reference): empty, Boolean, the integer and floating
// types, strings, the library's own objects (or Nothing) and one-dimensional arrays of those.
// Raises 13 for anything else (a foreign object, Null, a date) and 6 when a wider integer
// does not fit 32 bits.
Variant FromVariant(const VARIANT& value);
// Fills out (already initialised, and left empty on failure); objects are handed out as
// IDispatch, arrays as safe arrays of BSTR, IDispatch or VARIANT. Raises 7 on no memory.
void ToVariant(const Variant& value, VARIANT* out);

}  // namespace vmio::com
