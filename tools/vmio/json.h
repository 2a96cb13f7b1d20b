#pragma once
// JSON output for scripts (--json): one object per line, errors as fields.
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "vmio/error.h"
#include "vmio/variant.h"

namespace vmio::cli {

// A JSON string literal, quotes included; bytes that are not valid UTF-8 become U+FFFD.
std::string JsonString(std::string_view text);
// A variant as JSON: null, true/false, a number, a string; an array or object as its text.
std::string JsonValue(const Variant& value);

// An object built member by member: JsonObject().Add("a", "1").Text() == {"a":1}.
class JsonObject {
 public:
  // A member whose value is already JSON.
  JsonObject& Add(std::string_view name, std::string_view json);
  JsonObject& AddString(std::string_view name, std::string_view text);
  JsonObject& AddNumber(std::string_view name, int64_t number);
  // "error": {"number": N, "description": "..."} (and "context" when given).
  JsonObject& AddError(const AutomationError& error, std::string_view context = {});
  std::string Text() const { return text_ + "}"; }

 private:
  std::string text_ = "{";
};

// A local time (the current one unless given) in ISO 8601 with milliseconds and the zone:
// 2024-05-01T12:00:00.123+02:00.
std::string IsoTimestamp(std::chrono::system_clock::time_point now = std::chrono::system_clock::now());

}  // namespace vmio::cli
