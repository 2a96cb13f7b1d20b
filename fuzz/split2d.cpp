// Split2D on any text and separators: the rows must tile the text exactly.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "core/split2d.h"
#include "vmio/error.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The first two bytes choose the separators' lengths (0..3), as drivers use "=", "\n", "\r\n".
  if (size < 2) return 0;
  const std::string_view all(reinterpret_cast<const char*>(data) + 2, size - 2);
  const size_t col_len = std::min<size_t>(data[0] % 4, all.size());
  const size_t row_len = std::min<size_t>(data[1] % 4, all.size() - col_len);
  const std::string_view col = all.substr(0, col_len);
  const std::string_view row = all.substr(col_len, row_len);
  const std::string_view text = all.substr(col_len + row_len);
  if (col.empty() || row.empty()) return 0;  // drivers never split at nothing
  try {
    const vmio::Split2DTable table = vmio::Split2D(text, col, row);
    if (table.empty()) std::abort();
    for (const vmio::Split2DRow& r : table) {
      // Every cell views into the text.
      for (std::string_view cell : {r.key, r.value}) {
        if (!cell.empty() && (cell.data() < text.data() || cell.data() + cell.size() > text.data() + text.size())) {
          std::abort();
        }
      }
      if (r.key.find(col) != std::string_view::npos || r.value.find(col) != std::string_view::npos) std::abort();
    }
  } catch (const vmio::AutomationError& e) {
    if (e.Number() != 9 || !text.empty()) std::abort();  // only an empty text may fail
  }
  return 0;
}
