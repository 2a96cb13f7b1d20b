#pragma once
// AxxessIDSensor: the environment sensors of an AxxessID installation, one string input each.
//
// It attaches to the AX200 software exactly as AxxessIDDoor does (same device string, same
// errors), then takes the software's sensor list: the ports are its sensors in list order,
// named by the software, each reading the sensor's current value text. One list read serves
// every port for 500 ms. A sensor that has left the list since Connect reads empty; a
// software that stops answering reads as 45005 "The AX200 software is not running".
//
// Writing raises 45004 "Port N is not an output port", with the blank before "is" that the
// other drivers leave out.
#include <cstdint>
#include <string>
#include <vector>

#include "devices/axxessid/ax200_device.h"

namespace vmio {

class AxxessIDSensor final : public AX200Device {
 public:
  AxxessIDSensor() : AX200Device(IOInput, ReadCaching::kAfterRead) {}

  // Raises with its own text (a blank before "is"), not the shared 45004.
  engine::Task<void> WritePort(int32_t Index, Variant NewValue) override;

 private:
  engine::Task<void> BuildPortTable() override;
  // One list read serves every sensor; the index is checked before it.
  int32_t GroupOf(int32_t Index) override {
    CheckIndex(Index);
    return 0;
  }
  engine::Task<void> ReadGroup(int32_t Group) override;
  // Sensors report no events of their own; the list is read when asked.
  void DoorStatus() override {}
  void Disconnected() override {}

  std::vector<std::string> sensor_ids_;  // the ports' sensors
};

}  // namespace vmio
