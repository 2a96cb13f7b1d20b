// Line taking on a listening serial port: what arrives, in pieces, against each line end.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "devices/rs232/line_assembly.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  constexpr std::string_view kEnds[] = {"\r", "\n", "\r\n"};
  const std::string_view end = kEnds[data[0] % 3];
  const std::string_view input(reinterpret_cast<const char*>(data) + 1, size - 1);
  std::string buffer;
  // Pieces cut at 0x00 bytes, as reads would deliver them.
  for (size_t start = 0; start <= input.size();) {
    size_t cut = input.find('\0', start);
    if (cut == std::string_view::npos) cut = input.size();
    buffer.append(input.substr(start, cut - start));
    const size_t before = buffer.size();
    if (const auto line = vmio::TakeLastLine(buffer, end)) {
      if (line->find(end) != std::string::npos) std::abort();
      if (buffer.find(end) != std::string::npos) std::abort();  // what stays is unfinished
      if (line->size() + end.size() + buffer.size() > before) std::abort();
    }
    start = cut + 1;
  }
  return 0;
}
