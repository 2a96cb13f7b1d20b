#include "value_text.h"

#include "core/text_match.h"

#include <charconv>
#include <limits>

#include "vmio/io_device.h"

namespace vmio::cli {
namespace {

template <class T>
std::optional<T> ParseWhole(std::string_view text) {
  T value{};
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

template <class T>
std::optional<Variant> ParseInteger(std::string_view digits) {
  const auto wide = ParseWhole<int64_t>(digits);
  if (!wide || *wide < std::numeric_limits<T>::min() || *wide > std::numeric_limits<T>::max()) return std::nullopt;
  return Variant(static_cast<T>(*wide));
}

std::string ShortestDouble(double value) {
  char buf[64];
  const auto result = std::to_chars(buf, buf + sizeof buf, value);
  return std::string(buf, result.ptr);
}

}  // namespace

std::string FormatTypedValue(const Variant& value) {
  switch (value.VarType()) {
    case vtBool:
      return value.AsBool() ? "bool:true" : "bool:false";
    case vtUI1:
      return "u1:" + std::to_string(value.AsInt32());
    case vtI2:
      return "i2:" + std::to_string(value.AsInt32());
    case vtI4:
      return "i4:" + std::to_string(value.AsInt32());
    case vtR8:
      return "r8:" + ShortestDouble(value.AsDouble());
    case vtString:
      return "str:" + EscapeText(value.AsString());
    case vtEmpty:
      return "empty";
    case vtDispatch:
      return "object";
    default:  // an array
      return "array:" + std::to_string(value.AsArray().size());
  }
}

std::optional<Variant> ParseTypedValue(std::string_view text) {
  if (text == "empty") return Variant();
  const size_t colon = text.find(':');
  if (colon == std::string_view::npos) return std::nullopt;
  const std::string_view type = text.substr(0, colon);
  const std::string_view rest = text.substr(colon + 1);
  if (type == "str") {
    auto unescaped = UnescapeText(rest);
    if (!unescaped) return std::nullopt;
    return Variant(std::move(*unescaped));
  }
  if (type == "bool") {
    if (EqualsNoCase(rest, "true")) return Variant(true);
    if (EqualsNoCase(rest, "false")) return Variant(false);
    return std::nullopt;
  }
  if (type == "u1") return ParseInteger<uint8_t>(rest);
  if (type == "i2") return ParseInteger<int16_t>(rest);
  if (type == "i4") return ParseInteger<int32_t>(rest);
  if (type == "r8") {
    const auto d = ParseWhole<double>(rest);
    if (!d) return std::nullopt;
    return Variant(*d);
  }
  return std::nullopt;
}

std::optional<int32_t> ParseInt32(std::string_view text) { return ParseWhole<int32_t>(text); }

std::string DisplayValue(const Variant& value) {
  if (value.IsEmpty()) return "(empty)";
  if (value.IsBool()) return value.AsBool() ? "true" : "false";
  if (value.IsString()) return EscapeText(value.AsString());
  const std::string typed = FormatTypedValue(value);
  return typed.substr(typed.find(':') + 1);  // a number without its type prefix
}

std::string DirectionName(int32_t direction) {
  switch (direction) {
    case IOInput:
      return "input";
    case IOOutput:
      return "output";
    case IOBidirectional:
      return "bidirectional";
    default:
      return std::to_string(direction);
  }
}

std::string TypeName(int32_t type) {
  switch (type) {
    case vtEmpty:
      return "Empty";
    case vtI2:
      return "Integer";
    case vtI4:
      return "Long";
    case vtR8:
      return "Double";
    case vtString:
      return "String";
    case vtBool:
      return "Boolean";
    case vtUI1:
      return "Byte";
    default:
      return std::to_string(type);
  }
}

}  // namespace vmio::cli
