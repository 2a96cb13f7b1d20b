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

Split2DTable::Iterator::Iterator(const Split2DTable* table, size_t start) : table_(table), start_(start) {
  end_ = table_->row_sep_.empty() ? std::string_view::npos : table_->text_.find(table_->row_sep_, start_);
}

Split2DRow Split2DTable::Iterator::operator*() const {
  const std::string_view row =
      table_->text_.substr(start_, end_ == std::string_view::npos ? std::string_view::npos : end_ - start_);
  return table_->col_sep_.empty() ? Split2DRow{row, {}} : SplitRow(row, table_->col_sep_);
}

Split2DTable::Iterator& Split2DTable::Iterator::operator++() {
  if (end_ == std::string_view::npos) {
    *this = Iterator();
  } else {
    *this = Iterator(table_, end_ + table_->row_sep_.size());
  }
  return *this;
}

size_t Split2DTable::size() const {
  size_t rows = 0;
  for (Iterator row = begin(); row != end(); ++row) ++rows;
  return rows;
}

Split2DTable Split2D(std::string_view text, std::string_view colSep, std::string_view rowSep) {
  if (text.empty()) Raise(kSubscriptOutOfRange);
  return {text, colSep, rowSep};
}

}  // namespace vmio
