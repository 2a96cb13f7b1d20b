// The AX200 service's lines on any byte stream, cut into reads at 0x00 bytes: whole lines
// come out without their LF, their fields join back into them, decimals read back the same,
// and a line built from fields splits into exactly those fields.
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "access/ax200_lines.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  vmio::LineBuffer lines;
  for (size_t start = 0; start <= input.size();) {
    size_t cut = input.find('\0', start);
    if (cut == std::string_view::npos) cut = input.size();
    lines.Append(input.substr(start, cut - start));
    while (const std::optional<std::string> line = lines.Next()) {
      if (line->find('\n') != std::string::npos) std::abort();
      const std::vector<std::string_view> fields = vmio::LineFields(*line);
      std::string joined;
      for (size_t i = 0; i < fields.size(); ++i) joined.append(i ? "\t" : "").append(fields[i]);
      if (joined != *line) std::abort();
      for (const std::string_view field : fields) {
        if (const std::optional<int32_t> n = vmio::ParseDecimal(field)) {
          if (vmio::ParseDecimal(std::to_string(*n)) != n) std::abort();
        }
      }
      const std::string back = vmio::ServiceLine({fields[0], fields.size() > 1 ? fields[1] : "x"});
      const std::vector<std::string_view> again = vmio::LineFields(std::string_view(back).substr(0, back.size() - 1));
      if (back.back() != '\n' || again.size() != 2 || again[0].find_first_of("\t\r\n") != std::string_view::npos)
        std::abort();
    }
    if (lines.Overflowed()) lines.Clear();  // as the bridge drops a service that sends no line end
    start = cut + 1;
  }
  return 0;
}
