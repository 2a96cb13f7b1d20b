#include "core/numeric.h"

#include <cmath>
#include <string>

#include "core/errors.h"

namespace vmio {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n'; }

int DigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return 99;
}

// "&H..." / "&O...": integer digits of the radix; the result takes the width the digits need.
double RadixVal(std::string_view text, size_t pos, int radix) {
  uint64_t value = 0;
  int digits = 0;
  for (; pos < text.size(); ++pos) {
    if (IsBlank(text[pos])) continue;
    const int d = DigitValue(text[pos]);
    if (d >= radix) break;
    value = value * radix + d;
    ++digits;
    if (value > 0xFFFFFFFFull) break;
  }
  const bool fits16 = radix == 16 ? digits <= 4 : value <= 0xFFFF;
  if (fits16) return static_cast<int16_t>(static_cast<uint16_t>(value));
  return static_cast<int32_t>(static_cast<uint32_t>(value));
}

}  // namespace

double Val(std::string_view text) {
  size_t pos = 0;
  while (pos < text.size() && IsBlank(text[pos])) ++pos;
  if (pos + 1 < text.size() && text[pos] == '&') {
    const char kind = static_cast<char>(text[pos + 1] | 0x20);
    if (kind == 'h') return RadixVal(text, pos + 2, 16);
    if (kind == 'o') return RadixVal(text, pos + 2, 8);
  }
  // Gather the characters of a decimal number, dropping blanks, then let strtod read them.
  std::string number;
  bool seen_point = false, seen_exp = false, seen_digit = false;
  for (; pos < text.size(); ++pos) {
    char c = text[pos];
    if (IsBlank(c)) continue;
    const bool at_start = number.empty() || (seen_exp && (number.back() == 'e'));
    if ((c == '+' || c == '-') && at_start) {
      number += c;
    } else if (c >= '0' && c <= '9') {
      number += c;
      seen_digit = true;
    } else if (c == '.' && !seen_point && !seen_exp) {
      number += c;
      seen_point = true;
    } else if ((c == 'e' || c == 'E' || c == 'd' || c == 'D') && seen_digit && !seen_exp) {
      number += 'e';
      seen_exp = true;
    } else {
      break;
    }
  }
  if (!seen_digit) return 0;
  // A dangling exponent marker or sign ("12e", "12e-") is not part of the number.
  while (!number.empty() && (number.back() == 'e' || number.back() == '+' || number.back() == '-')) number.pop_back();
  return std::strtod(number.c_str(), nullptr);
}

int32_t RoundToInt32(double value) {
  const double r = std::nearbyint(value);  // default rounding mode: halves to even
  if (!(r >= -2147483648.0 && r <= 2147483647.0)) Raise(kOverflow);
  return static_cast<int32_t>(r);
}

int32_t TruncToInt32(double value) {
  const double t = std::trunc(value);
  if (!(t >= -2147483648.0 && t <= 2147483647.0)) Raise(kOverflow);
  return static_cast<int32_t>(t);
}

int16_t RoundToInt16(double value) {
  const double r = std::nearbyint(value);
  if (!(r >= -32768.0 && r <= 32767.0)) Raise(kOverflow);
  return static_cast<int16_t>(r);
}

}  // namespace vmio
