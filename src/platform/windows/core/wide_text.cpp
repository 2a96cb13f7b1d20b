#include "platform/windows/core/wide_text.h"

namespace vmio {

std::string Utf8(const wchar_t* text, size_t length) {
  if (!text || length == 0) return {};
  const int size = static_cast<int>(length);
  const int n = WideCharToMultiByte(CP_UTF8, 0, text, size, nullptr, 0, nullptr, nullptr);
  std::string utf8(static_cast<size_t>(n > 0 ? n : 0), '\0');
  if (n > 0) WideCharToMultiByte(CP_UTF8, 0, text, size, utf8.data(), n, nullptr, nullptr);
  return utf8;
}

std::string Utf8(BSTR text) { return Utf8(text, text ? SysStringLen(text) : 0); }

std::wstring Utf16(std::string_view text) {
  if (text.empty()) return {};
  const int size = static_cast<int>(text.size());
  const int n = MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0);
  std::wstring wide(static_cast<size_t>(n > 0 ? n : 0), L'\0');
  if (n > 0) MultiByteToWideChar(CP_UTF8, 0, text.data(), size, wide.data(), n);
  return wide;
}

}  // namespace vmio
