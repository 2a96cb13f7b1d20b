#pragma once
// The shell's line syntax, apart from any object model: command lines, their arguments and
// typed values as written. Plain text functions with no library dependency, so every program
// speaking the protocol (`vmio shell`, the COM scripting host) reads lines the same way.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <istream>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace vmio::cli {

// Malformed arguments or an unknown command: every shell answers error 5 for it.
class ShellSyntaxError : public std::exception {
 public:
  const char* what() const noexcept override { return "Invalid procedure call or argument"; }
};

std::string_view TrimLeft(std::string_view text);

// A decimal 32-bit integer, optionally negative, nothing else.
std::optional<int32_t> ParseInt32(std::string_view text);

// A typed value as written ("empty", "bool:true", "u1:7", "i2:-3", "i4:42", "r8:0.5",
// "str:ESCAPED"), before a host turns it into its own variant.
using TypedValue = std::variant<std::monostate, bool, uint8_t, int16_t, int32_t, double, std::string>;
// Nothing when the text is malformed or a number is out of its type's range.
std::optional<TypedValue> ParseTypedText(std::string_view text);

// The arguments after the command word, consumed from the left; each call throws
// ShellSyntaxError when what it takes is not there.
class ShellArguments {
 public:
  explicit ShellArguments(std::string_view rest) : rest_(rest) {}

  // Everything left, as it stands (trailing blanks included).
  std::string_view Rest() const { return rest_; }
  std::string_view Token();
  int32_t Int32();
  // Typed values up to the end of the line; a "str:" value runs to the end of the line.
  std::vector<TypedValue> Values();
  TypedValue OneValue();
  void End() const;

 private:
  std::string_view rest_;
};

struct ShellCommand {
  std::string_view word;
  ShellArguments args;
};

// The longest command line a shell takes; a longer one is answered with error 5.
inline constexpr size_t kMaxShellLine = size_t{1} << 20;

enum class LineRead { kLine, kTooLong, kEnd };

// The next line of in without its LF. A line longer than kMaxShellLine is read to its end
// without being kept: line then holds only its first kMaxShellLine bytes. kEnd once nothing
// is left.
LineRead ReadShellLine(std::istream& in, std::string& line);

// The command of one input line; nothing for a blank line or a comment. A carriage return
// ending the line is dropped, so scripts written with CR LF work.
std::optional<ShellCommand> ReadCommandLine(std::string_view line);

}  // namespace vmio::cli
