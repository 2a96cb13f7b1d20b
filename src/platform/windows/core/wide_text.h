#pragma once
// Text across the Windows boundary: the library's UTF-8 inside, the system's UTF-16 (and the
// automation BSTR) outside.
#include <windows.h>

// After windows.h, which it needs.
#include <oleauto.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace vmio {

std::string Utf8(const wchar_t* text, size_t length);
std::string Utf8(BSTR text);  // a null BSTR is the empty text
std::wstring Utf16(std::string_view text);

}  // namespace vmio
