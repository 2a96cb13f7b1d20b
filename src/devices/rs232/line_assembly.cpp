#include "devices/rs232/line_assembly.h"

namespace vmio {

std::optional<std::string> TakeLastLine(std::string& buffer, std::string_view terminator) {
  size_t rest = 0;
  std::optional<std::string> line;
  for (size_t end; (end = buffer.find(terminator, rest)) != std::string::npos; rest = end + terminator.size()) {
    line.emplace(std::string_view(buffer).substr(rest, end - rest));
  }
  if (line) buffer.erase(0, rest);
  return line;
}

}  // namespace vmio
