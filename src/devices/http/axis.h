#pragma once
// Axis network cameras and video servers, through their parameter and I/O CGIs.
//
// Ports 0 .. InputCount - 1 are the inputs (direction 1), the rest the outputs, which report
// 3 (read back from the device), never 2. Newer firmware also has the IOPort group, where
// each port declares its own direction and all ports are read and switched through port.cgi;
// older firmware reads inputs and outputs through input.cgi and output.cgi. Each of the three
// reads is cached for 500 ms on a tick kept for the object's life, reconnects included.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "devices/http/http_device.h"

namespace vmio {

// Reply handling on plain text, apart from the transport.
namespace axis {
struct Counts {
  int32_t inputs = 0;
  int32_t outputs = 0;
};
// The counts an Input,Output list names; one it lacks keeps its value in previous.
Counts ReadCounts(std::string_view reply, Counts previous);
// The directions an IOPort list declares, into directions (9 for a port outside it).
void ReadIOPortDirections(std::string_view reply, std::vector<int32_t>& directions);
// The states of a check CGI reply ("port3=1", the name keyPrefix long) into values from
// offset on (9 for a port outside them).
void ReadStates(std::string_view reply, size_t keyPrefix, int32_t offset, std::vector<bool>& values);
}  // namespace axis

class Axis final : public HttpDevice {
 public:
  std::string PortName(int32_t Index) override;

 private:
  enum Group : int32_t { kAllPorts, kInputs, kOutputs };

  engine::Task<void> BuildPortTable() override;
  engine::Task<void> WritePort(int32_t Index, Variant NewValue) override;
  // The IOPort group reads every port at once (and checks no index before asking); otherwise
  // the direction picks inputs or outputs, and a port of neither is answered from the table.
  int32_t GroupOf(int32_t Index) override;
  engine::Task<void> ReadGroup(int32_t Group) override;
  // Reads states 1..count from a check CGI into the table from offset on. keyPrefix is the
  // length of the key's name before its number.
  engine::Task<void> ReadStates(int32_t count, std::string checkPath, size_t keyPrefix, int32_t offset);

  int32_t InputCount = 0;
  int32_t OutputCount = 0;
  bool UsesIOPortGroup = false;
};

}  // namespace vmio
