#pragma once
// The response header block as the HTTP client keeps it, and the status code read from it:
// plain text handling, apart from the transport.
#include <string>
#include <string_view>

namespace vmio {

// What the platform's header buffer holds; a longer block is not retried.
inline constexpr size_t kHeaderBufferChars = 2048;

// Collects the header lines of an exchange; only the last response's block counts (1xx,
// authentication and redirect responses come before it), and trailers after a body are not
// part of it.
class HeaderBlock {
 public:
  // One line as it arrived, CR LF included: a status line, a header or the closing blank line.
  void AddLine(std::string_view line);
  // The status line and headers joined by CR LF, without the closing blank line; a block too
  // long for the header buffer leaves that buffer blank (kHeaderBufferChars NULs).
  std::string Take();

 private:
  std::string block_;
  bool closed_ = false;
};

// The status code of a header block's status line when it is three characters in 100..599,
// else "". reason, when given, receives the reason phrase (still ending in its CR) whenever a
// code is found and the line has one.
std::string StatusCodeOf(std::string_view headers, std::string* reason);

}  // namespace vmio
