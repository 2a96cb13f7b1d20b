#include "http/header_block.h"

namespace vmio {

void HeaderBlock::AddLine(std::string_view line) {
  if (line.starts_with("HTTP/")) {
    block_.clear();  // a new response: only the last one's headers count
    closed_ = false;
  } else if (closed_) {
    return;  // trailers after the body
  }
  if (line == "\r\n" || line == "\n") {
    closed_ = true;
    return;
  }
  block_.append(line);
}

std::string HeaderBlock::Take() {
  if (block_.size() + 3 > kHeaderBufferChars) return std::string(kHeaderBufferChars, '\0');
  if (block_.ends_with("\r\n")) block_.resize(block_.size() - 2);
  return std::move(block_);
}

std::string StatusCodeOf(std::string_view headers, std::string* reason) {
  const size_t crlf = headers.find("\r\n");
  if (crlf == std::string_view::npos) return {};
  // The status line with its CR, split at blanks into at most three pieces.
  const std::string_view line = headers.substr(0, crlf + 1);
  const size_t first = line.find(' ');
  if (first == std::string_view::npos) return {};
  const size_t second = line.find(' ', first + 1);
  const std::string_view code =
      line.substr(first + 1, second == std::string_view::npos ? line.npos : second - first - 1);
  const auto digit = [](char c) { return c >= '0' && c <= '9'; };
  if (code.size() != 3 || code[0] < '1' || code[0] > '5' || !digit(code[1]) || !digit(code[2])) return {};
  if (reason && second != std::string_view::npos) *reason = std::string(line.substr(second + 1));
  return std::string(code);
}

}  // namespace vmio
