#pragma once
// Genie devices driven through their "/httpapi/" interface.
//
// Quirks: the layout is fixed (two sensors, two alarm outputs, a buzzer) and never asked of the
// device; Connect only checks that GetState answers. One GetState reads all five states; its
// "KEY=value" lines are matched to ports by exact, case-sensitive key. The outputs report
// direction 3 (IOBidirectional) because their states are read back.
#include <cstdint>
#include <string>

#include <string_view>
#include <vector>

#include "devices/http/http_device.h"

namespace vmio {

// Reply handling on plain text, apart from the transport.
namespace genie {
// The states of a GetState reply into the five ports' values.
void ReadStates(std::string_view reply, std::vector<bool>& values);
}  // namespace genie

class Genie final : public HttpDevice {
 public:
  std::string PortName(int32_t Index) override;

 private:
  static constexpr int32_t InputCount = 2;
  static constexpr int32_t OutputCount = 3;

  engine::Task<void> BuildPortTable() override;
  engine::Task<void> WritePort(int32_t Index, Variant NewValue) override;
  // One GetState reads every port; the index is checked only when the table answers.
  int32_t GroupOf(int32_t) override { return 0; }
  engine::Task<void> ReadGroup(int32_t Group) override;
};

}  // namespace vmio
