#pragma once
// Assembling lines from what a listening serial port received, apart from the line itself so
// it can be checked on plain text.
#include <optional>
#include <string>
#include <string_view>

namespace vmio {

// Takes the last complete line (ended by terminator, which is not empty) out of buffer, which
// keeps only what follows it: an unfinished line. Nothing, and buffer untouched, when it holds
// no complete line.
std::optional<std::string> TakeLastLine(std::string& buffer, std::string_view terminator);

}  // namespace vmio
