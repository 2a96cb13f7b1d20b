#include "value_text.h"

#include <charconv>
#include <type_traits>
#include <utility>
#include <variant>

#include "vmio/io_device.h"

namespace vmio::cli {
namespace {

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

Variant ToVariant(TypedValue value) {
  return std::visit(
      [](auto&& v) {
        if constexpr (std::is_same_v<std::decay_t<decltype(v)>, std::monostate>) {
          return Variant();
        } else {
          return Variant(std::move(v));
        }
      },
      std::move(value));
}

std::optional<Variant> ParseTypedValue(std::string_view text) {
  auto typed = ParseTypedText(text);
  if (!typed) return std::nullopt;
  return ToVariant(std::move(*typed));
}

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
