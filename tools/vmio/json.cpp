#include "json.h"

#include <chrono>
#include <cstdio>
#include <ctime>

#include "value_text.h"

namespace vmio::cli {
namespace {

// The length of the valid UTF-8 sequence at text[i], or 0.
size_t Utf8Length(std::string_view text, size_t i) {
  const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
  const unsigned char lead = byte(i);
  size_t length = lead >= 0xF0 && lead <= 0xF4 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 && lead < 0xE0 ? 2 : 0;
  if (length == 0 || i + length > text.size()) return 0;
  for (size_t k = 1; k < length; ++k) {
    if ((byte(i + k) & 0xC0) != 0x80) return 0;
  }
  // No overlong forms, surrogates or code points beyond U+10FFFF.
  const unsigned char second = byte(i + 1);
  if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second >= 0xA0) || (lead == 0xF0 && second < 0x90) ||
      (lead == 0xF4 && second >= 0x90))
    return 0;
  return length;
}

}  // namespace

std::string JsonString(std::string_view text) {
  std::string out = "\"";
  for (size_t i = 0; i < text.size();) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c >= 0x80) {
      const size_t length = Utf8Length(text, i);
      out += length ? text.substr(i, length) : "\\ufffd";
      i += length ? length : 1;
      continue;
    }
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c < 0x20 || c == 0x7F) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
      out += escaped;
    } else {
      out += static_cast<char>(c);
    }
    ++i;
  }
  return out + "\"";
}

std::string JsonValue(const Variant& value) {
  switch (value.VarType()) {
    case vtEmpty:
      return "null";
    case vtBool:
      return value.AsBool() ? "true" : "false";
    case vtUI1:
    case vtI2:
    case vtI4:
      return std::to_string(value.AsInt32());
    case vtR8: {
      const std::string typed = FormatTypedValue(value);  // "r8:X", the shortest exact form
      const std::string number = typed.substr(3);
      return number.find_first_not_of("0123456789.-e+") == std::string::npos ? number : "null";
    }
    case vtString:
      return JsonString(value.AsString());
    default:
      return JsonString(DisplayValue(value));
  }
}

JsonObject& JsonObject::Add(std::string_view name, std::string_view json) {
  if (text_.size() > 1) text_ += ',';
  text_ += JsonString(name);
  text_ += ':';
  text_ += json;
  return *this;
}

JsonObject& JsonObject::AddString(std::string_view name, std::string_view text) { return Add(name, JsonString(text)); }

JsonObject& JsonObject::AddNumber(std::string_view name, int64_t number) { return Add(name, std::to_string(number)); }

JsonObject& JsonObject::AddError(const AutomationError& error, std::string_view context) {
  JsonObject fields;
  fields.AddNumber("number", error.Number()).AddString("description", error.Description());
  if (!context.empty()) fields.AddString("context", context);
  return Add("error", fields.Text());
}

std::string IsoTimestamp(std::chrono::system_clock::time_point now) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm local{};
  localtime_r(&seconds, &local);
  char date[32];
  char zone[8];
  const size_t date_length = std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
  const size_t zone_length = std::strftime(zone, sizeof zone, "%z", &local);  // +0200
  std::string text(date, date_length);
  char millis[8];
  std::snprintf(millis, sizeof millis, ".%03d", static_cast<int>(ms));
  text += millis;
  if (zone_length == 5) {
    text.append(zone, 3).append(":").append(zone + 3, 2);
  } else {
    text += 'Z';
  }
  return text;
}

}  // namespace vmio::cli
