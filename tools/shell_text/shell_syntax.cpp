#include "shell_syntax.h"

#include <charconv>
#include <limits>
#include <utility>

#include "escape_text.h"

namespace vmio::cli {
namespace {

constexpr std::string_view kBlanks = " \t";

template <class T>
std::optional<T> ParseWhole(std::string_view text) {
  T value{};
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

template <class T>
std::optional<TypedValue> ParseInteger(std::string_view digits) {
  const auto wide = ParseWhole<int64_t>(digits);
  if (!wide || *wide < std::numeric_limits<T>::min() || *wide > std::numeric_limits<T>::max()) return std::nullopt;
  return TypedValue(static_cast<T>(*wide));
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

}  // namespace

std::string_view TrimLeft(std::string_view text) {
  const size_t start = text.find_first_not_of(kBlanks);
  return start == std::string_view::npos ? std::string_view() : text.substr(start);
}

std::optional<int32_t> ParseInt32(std::string_view text) { return ParseWhole<int32_t>(text); }

std::optional<TypedValue> ParseTypedText(std::string_view text) {
  if (text == "empty") return TypedValue();
  const size_t colon = text.find(':');
  if (colon == std::string_view::npos) return std::nullopt;
  const std::string_view type = text.substr(0, colon);
  const std::string_view rest = text.substr(colon + 1);
  if (type == "str") {
    auto unescaped = UnescapeText(rest);
    if (!unescaped) return std::nullopt;
    return TypedValue(std::move(*unescaped));
  }
  if (type == "bool") {
    if (EqualsNoCase(rest, "true")) return TypedValue(true);
    if (EqualsNoCase(rest, "false")) return TypedValue(false);
    return std::nullopt;
  }
  if (type == "u1") return ParseInteger<uint8_t>(rest);
  if (type == "i2") return ParseInteger<int16_t>(rest);
  if (type == "i4") return ParseInteger<int32_t>(rest);
  if (type == "r8") {
    const auto d = ParseWhole<double>(rest);
    if (!d) return std::nullopt;
    return TypedValue(*d);
  }
  return std::nullopt;
}

std::string_view ShellArguments::Token() {
  const size_t end = rest_.find_first_of(kBlanks);
  const std::string_view token = rest_.substr(0, end);
  rest_ = end == std::string_view::npos ? std::string_view() : TrimLeft(rest_.substr(end));
  if (token.empty()) throw ShellSyntaxError();
  return token;
}

int32_t ShellArguments::Int32() {
  const auto value = ParseInt32(Token());
  if (!value) throw ShellSyntaxError();
  return *value;
}

std::vector<TypedValue> ShellArguments::Values() {
  std::vector<TypedValue> values;
  while (!rest_.empty()) {
    const std::string_view text = rest_.starts_with("str:") ? std::exchange(rest_, {}) : Token();
    auto value = ParseTypedText(text);
    if (!value) throw ShellSyntaxError();
    values.push_back(std::move(*value));
  }
  return values;
}

TypedValue ShellArguments::OneValue() {
  auto values = Values();
  if (values.size() != 1) throw ShellSyntaxError();
  return std::move(values[0]);
}

void ShellArguments::End() const {
  if (!TrimLeft(rest_).empty()) throw ShellSyntaxError();
}

std::optional<ShellCommand> ReadCommandLine(std::string_view line) {
  if (line.ends_with('\r')) line.remove_suffix(1);
  line = TrimLeft(line);
  if (line.empty() || line.front() == '#') return std::nullopt;
  const size_t end = line.find_first_of(kBlanks);
  return ShellCommand{line.substr(0, end),
                      ShellArguments(end == std::string_view::npos ? std::string_view() : TrimLeft(line.substr(end)))};
}

LineRead ReadShellLine(std::istream& in, std::string& line) {
  line.clear();
  std::streambuf* input = in.rdbuf();
  bool any = false;
  bool too_long = false;
  for (;;) {
    const std::streambuf::int_type c = input ? input->sbumpc() : std::streambuf::traits_type::eof();
    if (std::streambuf::traits_type::eq_int_type(c, std::streambuf::traits_type::eof())) {
      in.setstate(std::ios::eofbit);
      if (!any) return LineRead::kEnd;
      break;
    }
    any = true;
    if (c == '\n') break;
    if (line.size() < kMaxShellLine) {
      line += std::streambuf::traits_type::to_char_type(c);
    } else {
      too_long = true;
    }
  }
  return too_long ? LineRead::kTooLong : LineRead::kLine;
}

}  // namespace vmio::cli
