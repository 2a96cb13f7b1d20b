#pragma once
// What the AxxessID drivers share: the bridge to the AX200 software on this computer, attaching
// to it, and ports that are the software's named points (doors, sensors), all strings of one
// direction. PortDirection, PortType and PortName check only the index, never the connection;
// Disconnect clears only the connected flag and the software stays attached.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "access/access_bridge.h"
#include "vmio/io_device.h"

namespace vmio {

class AX200Device : public IODevice, protected AccessEvents {
 public:
  void Disconnect() override;
  int32_t Ports() override;
  int32_t PortDirection(int32_t Index) override;
  int32_t PortType(int32_t Index) override;
  std::string PortName(int32_t Index) override;

 protected:
  explicit AX200Device(IOPortDirection direction);

  // Connect's opening: hands the software the device string, then this computer's first IPv4
  // address (empty when it has none), so that the software's objects attach here. Raises 45001
  // "The AX200 software is not found", with Connected cleared, when the software is absent.
  void Attach(const std::string& Device);
  // Raises 9 unless Index names one of the points.
  void CheckIndex(int32_t Index) const;

  bool Connected = false;
  std::vector<std::string> PortNames;  // one per port, in the software's order
  std::unique_ptr<AccessBridge> bridge_;

 private:
  const IOPortDirection direction_;
};

}  // namespace vmio
