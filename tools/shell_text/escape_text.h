#pragma once
// The escapes of the shell's line protocol, both ways. Plain text functions with no library
// dependency, so every program speaking the protocol shares them.
#include <optional>
#include <string>
#include <string_view>

namespace vmio::cli {

// Writes backslash as \\, CR, LF and tab as \r \n \t, and every other control character (C0,
// DEL, C1) and every byte that is not valid UTF-8 as \xHH, so a result always stays on one line.
std::string EscapeText(std::string_view text);
// Reads \\ \r \n \t and \xHH (any byte); nothing for another escape or a trailing backslash.
std::optional<std::string> UnescapeText(std::string_view text);

}  // namespace vmio::cli
