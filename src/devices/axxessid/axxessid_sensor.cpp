#include "devices/axxessid/axxessid_sensor.h"

#include <optional>
#include <utility>

#include "core/common.h"
#include "core/errors.h"
#include "devices/axxessid/ax200_attach.h"

namespace vmio {

AxxessIDSensor::AxxessIDSensor() : bridge_(CreateAccessBridge(*this)) {}

AxxessIDSensor::~AxxessIDSensor() { Disconnect(); }

void AxxessIDSensor::Connect(const std::string& Device) {
  Connected = AttachToAX200(*bridge_, Device);
  if (!Connected) RaiseSoftwareNotFound();
  std::optional<std::vector<AccessSensor>> list = bridge_->Sensors();
  sensors_ = list ? std::move(*list) : std::vector<AccessSensor>();
  if (list) {
    values_.MarkFresh();
  } else {
    values_.MarkStale();
  }
}

void AxxessIDSensor::Disconnect() { Connected = false; }

int32_t AxxessIDSensor::Ports() {
  if (!Connected) RaiseNotConnected();
  return static_cast<int32_t>(sensors_.size());
}

int32_t AxxessIDSensor::PortDirection(int32_t Index) {
  CheckIndex(Index);
  return IOInput;
}

int32_t AxxessIDSensor::PortType(int32_t Index) {
  CheckIndex(Index);
  return vtString;
}

std::string AxxessIDSensor::PortName(int32_t Index) {
  CheckIndex(Index);
  return sensors_[static_cast<size_t>(Index)].name;
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

void AxxessIDSensor::CheckIndex(int32_t Index) const {
  if (Index < 0 || static_cast<size_t>(Index) >= sensors_.size()) Raise(9);
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
