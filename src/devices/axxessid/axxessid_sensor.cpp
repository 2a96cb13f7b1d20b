#include "devices/axxessid/axxessid_sensor.h"

#include <optional>
#include <utility>

#include "core/errors.h"

namespace vmio {

engine::Task<void> AxxessIDSensor::BuildPortTable() {
  Attach(Host);
  const std::optional<std::vector<AccessSensor>> list = bridge_->Sensors();
  std::vector<std::string> names;
  sensor_ids_.clear();
  for (const AccessSensor& sensor : list ? *list : std::vector<AccessSensor>()) {
    sensor_ids_.push_back(sensor.id);
    names.push_back(sensor.name);
  }
  SetPoints(names);
  if (!list) co_return GroupCache(0).MarkStale();
  for (size_t i = 0; i < list->size(); ++i) PortTable[i].value = Variant((*list)[i].value);
  GroupCache(0).MarkFresh();
  co_return;
}

engine::Task<void> AxxessIDSensor::WritePort(int32_t Index, Variant) {
  RequireConnected();
  CheckIndex(Index);
  Raise(IOErrorInvalidPortDirection, "Port " + std::to_string(Index + 1) + " is not an output port");
  co_return;
}

// Takes the current values by sensor id; the ports stay as Connect found them.
engine::Task<void> AxxessIDSensor::ReadGroup(int32_t) {
  const std::optional<std::vector<AccessSensor>> now = bridge_->Sensors();
  if (!now) Raise(IOErrorGettingValue, "The AX200 software is not running");
  for (size_t i = 0; i < sensor_ids_.size(); ++i) {
    std::string value;
    for (const AccessSensor& s : *now) {
      if (s.id == sensor_ids_[i]) value = s.value;
    }
    PortTable[i].value = Variant(std::move(value));
  }
  co_return;
}

}  // namespace vmio
