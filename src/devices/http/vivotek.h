#pragma once
// Vivotek network cameras and video servers: digital inputs (di) and outputs (do) over CGI.
//
// Quirks kept on purpose:
//  - The port layout comes from the capability list, whose values may be single-quoted
//    (capability_ndi='2') or bare; a count the list does not name keeps its last value.
//  - Each port has a kind (0 input, 1 output) that drives everything else; outputs report
//    direction 3, since their state is read back with getdo.cgi.
//  - Inputs and outputs have separate 500 ms caches and separate requests.
//  - PortName has no connection test and no range test of its own beyond the kind array's.
//  - Replies are rows split at CR LF.
#include <cstdint>
#include <string>
#include <vector>

#include "http/device_request.h"

namespace vmio {

class Vivotek final : public HttpDevice {
 public:
  void Connect(const std::string& Device) override;
  int32_t PortDirection(int32_t Index) override;
  std::string PortName(int32_t Index) override;
  Variant PortValue(int32_t Index) override;
  void PortValue(int32_t Index, const Variant& NewValue) override;

 private:
  static constexpr int32_t kDigitalInput = 0;
  static constexpr int32_t kDigitalOutput = 1;

  // The port's kind; 9 outside the kind array.
  int32_t PortKind(int32_t Index) const;
  void RefreshInputs();
  void RefreshOutputs();
  // Reads one group ("di" or "do") of count ports whose first entry is at offset, unless
  // lastRead is less than 501 ms old.
  void RefreshGroup(const char* cgi, const char* item, int32_t count, int32_t offset, int32_t& lastRead);

  int32_t InputCount = 0;
  int32_t OutputCount = 0;
  std::vector<int32_t> PortKinds;
  int32_t LastInputRead = 0;
  int32_t LastOutputRead = 0;
};

}  // namespace vmio
