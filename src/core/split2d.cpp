#include "core/split2d.h"

#include "core/errors.h"

namespace vmio {
namespace {

// The first piece before sep and, when sep occurs, the piece up to the next sep.
Split2DRow SplitRow(std::string_view row, std::string_view sep) {
  const size_t first = row.find(sep);
  if (first == std::string_view::npos) return {row, {}};
  std::string_view rest = row.substr(first + sep.size());
  return {row.substr(0, first), rest.substr(0, rest.find(sep))};
}

}  // namespace

Split2DTable Split2D(std::string_view text, std::string_view colSep, std::string_view rowSep) {
  if (text.empty()) Raise(kSubscriptOutOfRange);
  Split2DTable table;
  size_t start = 0;
  while (true) {
    const size_t end = rowSep.empty() ? std::string_view::npos : text.find(rowSep, start);
    const std::string_view row =
        text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
    table.push_back(colSep.empty() ? Split2DRow{row, {}} : SplitRow(row, colSep));
    if (end == std::string_view::npos) break;
    start = end + rowSep.size();
  }
  return table;
}

}  // namespace vmio
