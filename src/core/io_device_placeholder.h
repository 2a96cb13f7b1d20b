#pragma once
#include "vmio/io_device.h"

namespace vmio {

// The creatable "VMIO.IODevice": the interface's own class, whose members do nothing.
class IODevicePlaceholder final : public IODevice {
 public:
  void Connect(const std::string&) override {}
  void Disconnect() override {}
  int32_t Ports() override { return 0; }
  int32_t PortDirection(int32_t) override { return 0; }
  int32_t PortType(int32_t) override { return 0; }
  std::string PortName(int32_t) override { return {}; }
  Variant PortValue(int32_t) override { return {}; }
  void PortValue(int32_t, const Variant&) override {}
};

}  // namespace vmio
