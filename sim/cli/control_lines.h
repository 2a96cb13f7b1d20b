#pragma once
// The lines `vmio-sim MAKE` reads on standard input while it serves. Every make with points
// takes the same point lines; a make adds only its own few.
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "point_bank.h"

namespace vmio::sim::cli {

// A make's own line, by its first word and the rest of the line: the answer, or nothing when
// the word is not the make's. Throws std::exception to answer "error: WHAT".
using OwnControl = std::function<std::optional<std::string>(const std::string& word, const std::string& rest)>;

// The help of the point lines.
extern const std::string_view kPointControlHelp;

// Answers one line: on points (when there are any) "input N on|off|VALUE", "output N ...",
// "inputs", "outputs" and "show"; then the make's own lines.
std::string AnswerControlLine(PointBank* points, const OwnControl& own, const std::string& line);

// "on"/"1" or "off"/"0" in a control line; nothing for other words.
std::optional<bool> ParseOnOff(const std::string& word);

}  // namespace vmio::sim::cli
