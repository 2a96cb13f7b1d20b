#pragma once
// Genie devices driven through their "/httpapi/" interface.
//
// Quirks: the layout is fixed (two sensors, two alarm outputs, a buzzer) and never asked of the
// device; Connect only checks that GetState answers. One GetState reads all five states; its
// "KEY=value" lines are matched to ports by exact, case-sensitive key. The outputs report
// direction 3 (IOBidirectional) because their states are read back.
#include <cstdint>
#include <string>

#include "http/device_request.h"

namespace vmio {

class Genie final : public HttpDevice {
 public:
  void Connect(const std::string& Device) override;
  std::string PortName(int32_t Index) override;
  Variant PortValue(int32_t Index) override;
  void PortValue(int32_t Index, const Variant& NewValue) override;

 private:
  static constexpr int32_t InputCount = 2;
  static constexpr int32_t OutputCount = 3;

  void RefreshStates();

  int32_t last_read_ = 0;
};

}  // namespace vmio
