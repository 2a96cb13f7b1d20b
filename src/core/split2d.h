#pragma once
// Cutting "key=value" replies into a two-column table.
#include <concepts>
#include <string>
#include <string_view>
#include <vector>

namespace vmio {

struct Split2DRow {
  std::string_view key;    // column 0
  std::string_view value;  // column 1
};
using Split2DTable = std::vector<Split2DRow>;

// Splits text at every rowSep into rows and each row at colSep; a row keeps only its first two
// pieces ("a=b=c" gives a and b), separators are not trimmed (CR LF split at LF leaves the CR),
// and a row without colSep has an empty value. An empty text raises 9: a table with no rows
// cannot be made. The rows view into text, which must outlive the table.
Split2DTable Split2D(std::string_view text, std::string_view colSep, std::string_view rowSep);
template <class S>
requires std::same_as<S, std::string> Split2DTable Split2D(S&& temporary, std::string_view, std::string_view)
= delete;

}  // namespace vmio
