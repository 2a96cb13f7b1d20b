#pragma once
// The AX200 service's line protocol, apart from the socket that carries it.
//
// One message a line, ending in LF (a CR before it is dropped), fields separated by one TAB.
// A field never holds TAB, CR or LF: each becomes a blank before sending.
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "access/access_bridge.h"

namespace vmio {

// The longest line kept, and the most doors or sensors one reply may list: names are short,
// and a service that sends without end must not fill memory.
inline constexpr size_t kMaxServiceLine = 4096;
inline constexpr int32_t kMaxListed = 10000;

// The fields joined into one line, LF included.
std::string ServiceLine(std::initializer_list<std::string_view> fields);

// A line split at its TABs.
std::vector<std::string_view> LineFields(std::string_view line);

// A whole decimal number ("-" allowed), nothing else.
std::optional<int32_t> ParseDecimal(std::string_view text);

// The name a door command has on the wire: OPEN, UNLOCK, NORMAL, HIGHSECURITY, DEADLOCK.
std::string_view CommandName(DoorCommand command);

// Bytes in, whole lines out.
class LineBuffer {
 public:
  void Append(std::string_view bytes) { pending_.append(bytes); }
  // The next whole line without its line end, or nothing when none is complete yet.
  std::optional<std::string> Next();
  // True when the unfinished line is already longer than any line may be.
  bool Overflowed() const { return pending_.size() > kMaxServiceLine; }
  void Clear() { pending_.clear(); }

 private:
  std::string pending_;
};

}  // namespace vmio
