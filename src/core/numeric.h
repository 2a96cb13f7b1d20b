#pragma once
// Reading numbers out of device text the way the automation run-time does.
#include <cstdint>
#include <string_view>

namespace vmio {

// The leading number of a text, leniently: blanks, tabs and line feeds are skipped anywhere,
// an optional sign, digits, a decimal point and an exponent (E or D) are read, and reading
// stops at the first other character. "&H" and "&O" introduce hexadecimal and octal integers
// (16-bit when they fit in four hex digits, as the run-time reads them). No number gives 0.
double Val(std::string_view text);

// Rounds to the nearest integer, halves to even; raises 6 (overflow) outside the range.
int32_t RoundToInt32(double value);
int16_t RoundToInt16(double value);
// Drops the fraction (toward zero); raises 6 (overflow) outside the range.
int32_t TruncToInt32(double value);

}  // namespace vmio
