#include "control_lines.h"

#include <sstream>
#include <stdexcept>

#include "serve.h"

namespace vmio::sim::cli {

const std::string_view kPointControlHelp =
    "  input N on|off|VALUE      change input N (1-based), or set the number the device reports\n"
    "  output N on|off|VALUE     switch output N at the device\n"
    "  inputs | outputs | show   show the states\n";

std::optional<bool> ParseOnOff(const std::string& word) {
  if (word == "on" || word == "1") return true;
  if (word == "off" || word == "0") return false;
  return std::nullopt;
}

namespace {

std::optional<std::string> AnswerPointLine(PointBank& points, const std::string& word, const std::string& rest) {
  const auto both = [&] { return points.Show(PointKind::Input) + " " + points.Show(PointKind::Output); };
  if (word == "show" && rest.empty()) return both();
  if ((word == "inputs" || word == "outputs") && rest.empty()) {
    return points.Show(word == "inputs" ? PointKind::Input : PointKind::Output);
  }
  if (word != "input" && word != "output") return std::nullopt;
  std::istringstream in(rest);
  std::string number, state, extra;
  in >> number >> state >> extra;
  if (state.empty() || !extra.empty()) throw std::invalid_argument("want " + word + " N on|off|VALUE");
  const std::optional<bool> on = ParseOnOff(state);
  const int value = on ? int{*on} : ParseCount(state);
  points.Set(word == "input" ? PointKind::Input : PointKind::Output, ParseCount(number), value);
  return both();
}

}  // namespace

std::string AnswerControlLine(PointBank* points, const OwnControl& own, const std::string& line) {
  const size_t blank = line.find(' ');
  const std::string word = line.substr(0, blank);
  const std::string rest = blank == std::string::npos ? std::string() : line.substr(blank + 1);
  try {
    std::optional<std::string> answer;
    if (points) answer = AnswerPointLine(*points, word, rest);
    if (!answer && own) answer = own(word, rest);
    if (answer) return *answer;
  } catch (const std::exception& e) {
    return "error: " + std::string(e.what());
  }
  return "error: unknown command '" + line + "' (see --help)";
}

}  // namespace vmio::sim::cli
