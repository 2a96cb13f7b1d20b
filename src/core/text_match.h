#pragma once
// Matching keys in device replies the way the run-time's Trim and LCase compare them.
#include <string_view>

namespace vmio {

// Without leading and trailing blanks (spaces only: tabs and CRs stay, as Trim leaves them).
std::string_view TrimSpaces(std::string_view text);
// Equal when compared with ASCII letters folded to lower case.
bool EqualsNoCase(std::string_view a, std::string_view b);

}  // namespace vmio
