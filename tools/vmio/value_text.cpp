#include "value_text.h"

#include "core/text_match.h"

#include <charconv>
#include <limits>

#include "vmio/io_device.h"

namespace vmio::cli {
namespace {

constexpr char kHex[] = "0123456789ABCDEF";

void AppendHexEscape(std::string& out, unsigned char byte) {
  out += "\\x";
  out += kHex[byte >> 4];
  out += kHex[byte & 0xF];
}

// Length of the well-formed UTF-8 sequence starting at text[i] (lead byte >= 0x80), or 0.
size_t Utf8SequenceLength(std::string_view text, size_t i) {
  const auto at = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
  const unsigned char lead = at(i);
  size_t length;
  unsigned char low = 0x80, high = 0xBF;  // allowed range of the second byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;   // overlong
    if (lead == 0xED) high = 0x9F;  // surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;   // overlong
    if (lead == 0xF4) high = 0x8F;  // beyond U+10FFFF
  } else {
    return 0;
  }
  if (i + length > text.size()) return 0;
  if (at(i + 1) < low || at(i + 1) > high) return 0;
  for (size_t k = 2; k < length; ++k) {
    if ((at(i + k) & 0xC0) != 0x80) return 0;
  }
  return length;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

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

std::string EscapeText(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte == '\\') {
      out += "\\\\";
    } else if (byte == '\r') {
      out += "\\r";
    } else if (byte == '\n') {
      out += "\\n";
    } else if (byte == '\t') {
      out += "\\t";
    } else if (byte < 0x20 || byte == 0x7F) {
      AppendHexEscape(out, byte);
    } else if (byte < 0x80) {
      out += static_cast<char>(byte);
    } else if (const size_t length = Utf8SequenceLength(text, i); length == 0) {
      AppendHexEscape(out, byte);  // not UTF-8: show the byte itself
    } else if (byte == 0xC2 && static_cast<unsigned char>(text[i + 1]) < 0xA0) {
      AppendHexEscape(out, byte);  // a C1 control character, U+0080..U+009F
      AppendHexEscape(out, static_cast<unsigned char>(text[i + 1]));
      i += 2;
      continue;
    } else {
      out.append(text, i, length);
      i += length;
      continue;
    }
    ++i;
  }
  return out;
}

std::optional<std::string> UnescapeText(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      out += text[i];
      continue;
    }
    if (++i == text.size()) return std::nullopt;
    switch (text[i]) {
      case '\\':
        out += '\\';
        break;
      case 'r':
        out += '\r';
        break;
      case 'n':
        out += '\n';
        break;
      case 't':
        out += '\t';
        break;
      case 'x': {
        if (i + 2 >= text.size()) return std::nullopt;
        const int high = HexDigit(text[i + 1]);
        const int low = HexDigit(text[i + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        out += static_cast<char>(high * 16 + low);
        i += 2;
        break;
      }
      default:
        return std::nullopt;
    }
  }
  return out;
}

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
