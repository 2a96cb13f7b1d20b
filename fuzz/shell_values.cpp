// The shell's typed values and escapes: parsing never fails hard, and what parses formats back
// to text that parses to the same value.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "value_text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (const auto value = vmio::cli::ParseTypedValue(text)) {
    const std::string formatted = vmio::cli::FormatTypedValue(*value);
    const auto again = vmio::cli::ParseTypedValue(formatted);
    if (!again || vmio::cli::FormatTypedValue(*again) != formatted) std::abort();
    vmio::cli::DisplayValue(*value);
  }
  if (const auto raw = vmio::cli::UnescapeText(text)) {
    if (vmio::cli::UnescapeText(vmio::cli::EscapeText(*raw)) != raw) std::abort();
  }
  const std::string escaped = vmio::cli::EscapeText(text);
  if (escaped.find_first_of("\r\n") != std::string::npos) std::abort();  // one line, always
  vmio::cli::ParseInt32(text);
  return 0;
}
