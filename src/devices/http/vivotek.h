#pragma once
// Vivotek network cameras and video servers: digital inputs (di) and outputs (do) over CGI.
//
// Quirks kept on purpose:
//  - The port layout comes from the capability list, whose values may be single-quoted
//    (capability_ndi='2') or bare; a count the list does not name keeps its last value.
//  - Inputs come first (direction 1); outputs report direction 3, since their state is read
//    back with getdo.cgi. The direction decides which group a read refreshes.
//  - Inputs and outputs have separate 500 ms caches and separate requests.
//  - PortName has no connection test; outside the table it raises 9.
//  - Replies are rows split at CR LF.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "devices/http/http_device.h"

namespace vmio {

// Reply handling on plain text, apart from the transport.
namespace vivotek {
struct Counts {
  int32_t inputs = 0;
  int32_t outputs = 0;
};
// The counts a capability list names; one it lacks keeps its value in previous.
Counts ReadCapabilities(std::string_view reply, Counts previous);
// The states of a getdi/getdo reply ("di1=1") into values from offset on (9 outside them).
void ReadStates(std::string_view reply, int32_t offset, std::vector<bool>& values);
}  // namespace vivotek

class Vivotek final : public HttpDevice {
 public:
  std::string PortName(int32_t Index) override;

 private:
  enum Group : int32_t { kInputs, kOutputs };

  engine::Task<void> BuildPortTable() override;
  engine::Task<void> WritePort(int32_t Index, Variant NewValue) override;
  int32_t GroupOf(int32_t Index) override { return PortDirection(Index) == IOInput ? kInputs : kOutputs; }
  engine::Task<void> ReadGroup(int32_t Group) override;
  // Reads one group ("di" or "do") of count ports whose first entry is at offset.
  engine::Task<void> ReadStates(const char* cgi, const char* item, int32_t count, int32_t offset);

  int32_t InputCount = 0;
  int32_t OutputCount = 0;
};

}  // namespace vmio
