// The HTTP client's header handling on plain text: header lines as a transport hands them over
// (split after each LF), the block kept, and the status code read from it.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "http/header_block.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  vmio::HeaderBlock block;
  for (size_t start = 0; start < input.size();) {
    size_t end = input.find('\n', start);
    end = end == std::string_view::npos ? input.size() : end + 1;
    block.AddLine(input.substr(start, end - start));
    start = end;
  }
  const std::string headers = block.Take();
  if (headers.size() > vmio::kHeaderBufferChars) std::abort();
  std::string reason = "untouched";
  const std::string code = vmio::StatusCodeOf(headers, &reason);
  if (!code.empty() && (code.size() != 3 || code[0] < '1' || code[0] > '5')) std::abort();
  if (code.empty() && reason != "untouched") std::abort();
  return 0;
}
