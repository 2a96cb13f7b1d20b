#pragma once
// Cutting "key=value" replies into a two-column table.
#include <concepts>
#include <cstddef>
#include <iterator>
#include <string>
#include <string_view>

namespace vmio {

struct Split2DRow {
  std::string_view key;    // column 0
  std::string_view value;  // column 1
};

// The rows of one text, cut one at a time as they are walked: the table holds nothing but the
// text and the separators, so a reply of nothing but row separators costs no more than itself.
class Split2DTable {
 public:
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using iterator_concept = std::forward_iterator_tag;
    using value_type = Split2DRow;
    using difference_type = std::ptrdiff_t;
    using reference = Split2DRow;
    using pointer = void;

    Iterator() = default;
    Split2DRow operator*() const;
    Iterator& operator++();
    Iterator operator++(int) {
      Iterator before = *this;
      ++*this;
      return before;
    }
    bool operator==(const Iterator& other) const { return start_ == other.start_; }

   private:
    friend class Split2DTable;
    Iterator(const Split2DTable* table, size_t start);

    const Split2DTable* table_ = nullptr;
    size_t start_ = std::string_view::npos;  // where the row begins; npos past the last row
    size_t end_ = std::string_view::npos;    // where its row separator begins; npos for the last row
  };

  Split2DTable(std::string_view text, std::string_view colSep, std::string_view rowSep)
      : text_(text), col_sep_(colSep), row_sep_(rowSep) {}

  Iterator begin() const { return {this, 0}; }
  Iterator end() const { return {}; }
  Split2DRow front() const { return *begin(); }
  // Walks the text to count its rows; a table is never empty.
  size_t size() const;
  bool empty() const { return false; }

 private:
  std::string_view text_;
  std::string_view col_sep_;
  std::string_view row_sep_;
};

// Splits text at every rowSep into rows and each row at colSep; a row keeps only its first two
// pieces ("a=b=c" gives a and b), separators are not trimmed (CR LF split at LF leaves the CR),
// and a row without colSep has an empty value. An empty text raises 9: a table with no rows
// cannot be made. The rows view into text, which must outlive the table.
Split2DTable Split2D(std::string_view text, std::string_view colSep, std::string_view rowSep);
template <class S>
requires std::same_as<S, std::string> Split2DTable Split2D(S&& temporary, std::string_view, std::string_view)
= delete;

}  // namespace vmio
