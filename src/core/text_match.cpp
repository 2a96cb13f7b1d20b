#include "core/text_match.h"

#include <algorithm>

namespace vmio {
namespace {

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; }

}  // namespace

std::string_view TrimSpaces(std::string_view text) {
  const size_t first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
  return std::ranges::equal(a, b, [](char x, char y) { return Lower(x) == Lower(y); });
}

}  // namespace vmio
