#pragma once
// The input layout shared by the HTTP drivers' reply targets: three leading bytes choose the
// parser and its table, the rest is the reply body as the transport hands it over.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "vmio/error.h"

namespace vmio::fuzz {

struct ReplyInput {
  uint8_t parser;  // which of the driver's parsing functions
  uint8_t size;    // the port table's size, or a previous count
  uint8_t extra;   // an offset, key length or base, as the function needs
  std::string_view reply;
};

inline std::optional<ReplyInput> SplitReplyInput(const uint8_t* data, size_t size) {
  if (size < 3) return std::nullopt;
  return ReplyInput{data[0], data[1], data[2], {reinterpret_cast<const char*>(data) + 3, size - 3}};
}

// Runs a parse; the run-time errors it raises on odd replies are its documented answers.
template <class Parse>
void Parse(Parse&& parse) {
  try {
    parse();
  } catch (const AutomationError&) {
  }
}

}  // namespace vmio::fuzz
