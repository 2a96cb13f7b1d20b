#include "access/ax200_lines.h"

#include <charconv>

namespace vmio {

std::string ServiceLine(std::initializer_list<std::string_view> fields) {
  std::string line;
  bool first = true;
  for (const std::string_view field : fields) {
    if (!first) line += '\t';
    first = false;
    for (const char c : field) line += (c == '\t' || c == '\r' || c == '\n') ? ' ' : c;
  }
  line += '\n';
  return line;
}

std::vector<std::string_view> LineFields(std::string_view line) {
  std::vector<std::string_view> fields;
  for (size_t start = 0;;) {
    const size_t tab = line.find('\t', start);
    fields.push_back(line.substr(start, tab - start));
    if (tab == std::string_view::npos) return fields;
    start = tab + 1;
  }
}

std::optional<int32_t> ParseDecimal(std::string_view text) {
  int32_t value = 0;
  const char* end = text.data() + text.size();
  const auto [ptr, ec] = std::from_chars(text.data(), end, value);
  if (text.empty() || ec != std::errc() || ptr != end) return std::nullopt;
  return value;
}

std::string_view CommandName(DoorCommand command) {
  switch (command) {
    case DoorCommand::kOpen:
      return "OPEN";
    case DoorCommand::kUnlock:
      return "UNLOCK";
    case DoorCommand::kNormal:
      return "NORMAL";
    case DoorCommand::kHighSecurity:
      return "HIGHSECURITY";
    case DoorCommand::kDeadlock:
      return "DEADLOCK";
  }
  return {};
}

std::optional<std::string> LineBuffer::Next() {
  const size_t lf = pending_.find('\n');
  if (lf == std::string::npos) return std::nullopt;
  std::string line = pending_.substr(0, lf);
  pending_.erase(0, lf + 1);
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
}

}  // namespace vmio
