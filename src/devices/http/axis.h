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

#include "http/device_request.h"

namespace vmio {

class Axis final : public HttpDevice {
 public:
  void Connect(const std::string& Device) override;
  std::string PortName(int32_t Index) override;
  Variant PortValue(int32_t Index) override;
  void PortValue(int32_t Index, const Variant& NewValue) override;

 private:
  void RefreshAllPorts();
  void RefreshInputs();
  void RefreshOutputs();
  // Reads states 1..count from a check CGI into the table from offset on, unless lastRead is
  // under 501 ms old. keyPrefix is the length of the key's name before its number.
  void Refresh(int32_t& lastRead, int32_t count, std::string_view checkPath, size_t keyPrefix, int32_t offset);
  // Fills directions from the IOPort group reply in LastReply.
  void ReadIOPortDirections();

  int32_t InputCount = 0;
  int32_t OutputCount = 0;
  bool UsesIOPortGroup = false;
  int32_t AllPortsReadTick = 0;
  int32_t InputsReadTick = 0;
  int32_t OutputsReadTick = 0;
};

}  // namespace vmio
