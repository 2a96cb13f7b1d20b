#include "devices/axxessid/axxessid_sensor.h"

#include <optional>
#include <utility>

#include "core/common.h"
#include "core/errors.h"

namespace vmio {

void AxxessIDSensor::Connect(const std::string& Device) {
  Attach(Device);
  std::optional<std::vector<AccessSensor>> list = bridge_->Sensors();
  sensors_ = list ? std::move(*list) : std::vector<AccessSensor>();
  PortNames.clear();
  for (const AccessSensor& sensor : sensors_) PortNames.push_back(sensor.name);
  if (list) {
    values_.MarkFresh();
  } else {
    values_.MarkStale();
  }
}

Variant AxxessIDSensor::PortValue(int32_t Index) {
  if (!Connected) RaiseNotConnected();
  CheckIndex(Index);
  if (values_.Stale()) Refresh();
  return Variant(sensors_[static_cast<size_t>(Index)].value);
}

void AxxessIDSensor::PortValue(int32_t Index, const Variant&) {
  if (!Connected) RaiseNotConnected();
  CheckIndex(Index);
  Raise(IOErrorInvalidPortDirection, "Port " + std::to_string(Index + 1) + " is not an output port");
}

// Takes the current values by sensor id; the ports stay as Connect found them.
void AxxessIDSensor::Refresh() {
  const std::optional<std::vector<AccessSensor>> now = bridge_->Sensors();
  if (!now) {
    values_.MarkStale();
    Raise(IOErrorGettingValue, "The AX200 software is not running");
  }
  for (AccessSensor& port : sensors_) {
    port.value.clear();
    for (const AccessSensor& s : *now) {
      if (s.id == port.id) port.value = s.value;
    }
  }
  values_.MarkFresh();
}

}  // namespace vmio
