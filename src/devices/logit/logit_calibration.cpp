#include "devices/logit/logit_calibration.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>

#include "core/errors.h"
#include "core/module_file.h"
#include "core/numeric.h"
#include "core/string_encoding.h"
#include "core/text_match.h"

namespace vmio {
namespace {

constexpr char kFileName[] = "LogIT Sensors.txt";
constexpr int32_t kFullScale = 65520;  // the raw reading at 2500 mV
constexpr double kFullScaleMv = 2500;

struct NoCaseLess {
  bool operator()(const std::string& a, const std::string& b) const {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
      return std::tolower(static_cast<unsigned char>(x)) < std::tolower(static_cast<unsigned char>(y));
    });
  }
};

struct Module {
  std::map<std::string, SensorRecord, NoCaseLess> sensors;
  std::map<std::string, CalibrationTable, NoCaseLess> tables;
};

Module& State() {
  thread_local Module module;
  return module;
}

// The run-time's Split: every "," separates; an empty text has no fields at all.
std::vector<std::string> Split(const std::string& text) {
  std::vector<std::string> fields;
  if (text.empty()) return fields;
  size_t start = 0;
  for (size_t comma; (comma = text.find(',', start)) != std::string::npos; start = comma + 1)
    fields.push_back(text.substr(start, comma - start));
  fields.push_back(text.substr(start));
  return fields;
}

// The lines as the run-time's line input gives them: ended by CR LF, CR or LF, a final line
// end not starting another line.
std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    const size_t end = text.find_first_of("\r\n", start);
    if (end == std::string::npos) {
      lines.push_back(text.substr(start));
      break;
    }
    lines.push_back(text.substr(start, end - start));
    start = end + (text.compare(end, 2, "\r\n") == 0 ? 2 : 1);
  }
  return lines;
}

std::string FirstWord(const std::string& line) {
  const size_t blank = line.find(' ');
  if (blank == std::string::npos) return {};
  return std::string(TrimSpaces(std::string_view(line).substr(0, blank)));
}

// A sensor code as the run-time converts a text compared with a number: the whole text, blanks
// around it aside, must be a number, or 13.
double StrictNumber(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t");
  const size_t last = text.find_last_not_of(" \t");
  if (first == std::string::npos) Raise(kTypeMismatch);
  const std::string number = text.substr(first, last - first + 1);
  char* end = nullptr;
  const double value = std::strtod(number.c_str(), &end);
  if (end != number.c_str() + number.size() || number.find_first_of("xXnN") != std::string::npos) Raise(kTypeMismatch);
  return value;
}

// Fifteen significant digits, as the run-time writes a double.
std::string NumberText(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.15G", value);
  return text;
}

// "0x" + hexadecimal digits as an unsigned 32-bit number ("0xFFFF" is 65535); otherwise
// millivolts scaled to the 16-bit range.
std::string RawText(const std::string& field) {
  if (field.starts_with("0x")) {
    uint32_t value = 0;
    for (size_t i = 2; i < field.size() && std::isxdigit(static_cast<unsigned char>(field[i])); ++i) {
      const char c = static_cast<char>(std::tolower(static_cast<unsigned char>(field[i])));
      value = value * 16 + static_cast<uint32_t>(c <= '9' ? c - '0' : c - 'a' + 10);
    }
    return std::to_string(static_cast<int32_t>(value));
  }
  return NumberText(Val(field) / kFullScaleMv * kFullScale);
}

template <class Map, class Value>
void AddUnique(Map& map, const std::string& key, Value value) {
  if (!map.emplace(key, std::move(value)).second) Raise(kKeyAlreadyAssociated);
}

void Load(const std::vector<std::string>& lines, Module& module) {
  double previous_code = 0;
  std::optional<CalibrationTable> table;
  // The last line is never handled: line input stops at the end of the file first.
  for (size_t i = 0; i + 1 < lines.size(); ++i) {
    const std::string& line = lines[i];
    const std::string word = FirstWord(line);
    if (word == "%%SENSOR") {
      std::vector<std::string> fields = Split(line.substr(9));
      if (fields.empty()) Raise(kSubscriptOutOfRange);
      const double code = StrictNumber(fields[0]);
      if (code == previous_code) continue;
      previous_code = code;
      CleanFields(fields);
      AddUnique(module.sensors, fields[0], fields);
    } else if (word == "%%TABLE") {
      table = CalibrationTable{line.substr(8)};
    } else if (table) {
      std::vector<std::string> fields = Split(line);
      CleanFields(fields);
      if (fields.size() < 2) Raise(kSubscriptOutOfRange);
      table->push_back(fields[0]);
      table->push_back(RawText(fields[1]));
      if (TrimSpaces(line).ends_with(';')) {
        const std::string name = table->front();
        AddUnique(module.tables, name, std::move(*table));
        table.reset();
      }
    }
  }
}

}  // namespace

void CleanFields(std::vector<std::string>& fields) {
  for (std::string& field : fields) {
    std::replace(field.begin(), field.end(), '\t', ' ');
    field = std::string(TrimSpaces(field));
    if (field.size() >= 2 && field.front() == '"' && field.back() == '"') field = field.substr(1, field.size() - 2);
    if (field.ends_with(';')) field.pop_back();
  }
}

// Beside the library (a build tree, a program linked with it), else in the data folder of the
// prefix the library is installed in, found from the library (a prefix moved as a whole) or as
// configured (a program linked with the static library).
void LoadSensorTable() {
  const std::string folder = ModuleFolder();
  const std::string candidates[] = {folder + "/" + kFileName, folder + "/" + VMIO_DATA_FROM_LIBRARY + "/" + kFileName};
  for (const std::string& path : candidates) {
    if (std::ifstream(path)) return LoadSensorTable(path);
  }
  LoadSensorTable(std::string(VMIO_DATA_DIR) + "/" + kFileName);
}

void LoadSensorTable(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string bytes;
  if (file) bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  LoadSensorTableBytes({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
}

void LoadSensorTableBytes(std::span<const uint8_t> bytes) {
  Module& module = State();
  module = Module{};
  Load(Lines(BytesToString(bytes, kCodePage1252)), module);
}

const SensorRecord* FindSensor(const std::string& code) {
  const auto& sensors = State().sensors;
  const auto it = sensors.find(code);
  return it == sensors.end() ? nullptr : &it->second;
}

double ConvertReading(int32_t Raw, const std::string& TableName) {
  const auto& tables = State().tables;
  const auto it = tables.find(TableName);
  if (it == tables.end()) Raise(kInvalidProcedureCall);
  const CalibrationTable& table = it->second;
  double result = 0;
  int32_t previous_raw = 0;
  int32_t previous_value = 0;
  for (size_t i = 1; i + 1 < table.size(); i += 2) {
    const int32_t raw = RoundToInt32(Val(table[i + 1]));
    const int32_t value = RoundToInt32(Val(table[i]));
    if (Raw < raw) {
      if (i == 1) return value;
      return previous_value + static_cast<double>(int64_t{value} - previous_value) *
                                  static_cast<double>(int64_t{Raw} - previous_raw) /
                                  static_cast<double>(int64_t{raw} - previous_raw);
    }
    if (Raw == raw) return value;
    previous_raw = raw;
    previous_value = value;
    result = value;
  }
  return result;
}

}  // namespace vmio
