#include "escape_text.h"

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

}  // namespace vmio::cli
