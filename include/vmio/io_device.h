#pragma once
// The device contract every driver implements.
//
// Lifecycle: a driver is created unconnected with an empty port table. Connect(Device)
// stores the device string, asks the device for its layout once and builds the table;
// Ports/PortDirection/PortType/PortName answer from it. Disconnect marks the object
// unconnected and keeps the table, so directions and types of the last connection still
// answer. Connect may be called again to rebuild the table. A Connect that fails leaves the
// object unconnected (Ports then raises 45003). Every call blocks the caller's thread until
// the device answers or the driver's documented time-out passes; failures are raised as
// AutomationError, never returned.
#include <cstdint>
#include <string>

#include "vmio/export.h"
#include "vmio/object.h"
#include "vmio/variant.h"

namespace vmio {

enum IOEnum : int32_t { IOUnknown = -1 };

enum IOPortDirection : int32_t { IOInput = 1, IOOutput = 2, IOBidirectional = 3 };

enum IOErrors : int32_t {
  IOErrorBase = 45000,
  IOErrorConnectionFailed = 45001,
  IOErrorAuthFailed = 45002,  // declared for hosts; raised by no driver
  IOErrorNotConnected = 45003,
  IOErrorInvalidPortDirection = 45004,
  IOErrorGettingValue = 45005,
};

class VMIO_API IODevice : public Object {
 public:
  virtual void Connect(const std::string& Device) = 0;
  virtual void Disconnect() = 0;
  virtual int32_t Ports() = 0;
  virtual int32_t PortDirection(int32_t Index) = 0;
  // The automation type code of the port's value (11 Boolean, 8 string).
  virtual int32_t PortType(int32_t Index) = 0;
  virtual std::string PortName(int32_t Index) = 0;
  virtual Variant PortValue(int32_t Index) = 0;
  // The property put: switch an output.
  virtual void PortValue(int32_t Index, const Variant& NewValue) = 0;

  // The interface's members in slot order, dispatch ids 1 to 7 (the put shares PortValue's).
  static const MemberTable kMembers;
  const MemberTable& Members() const override { return kMembers; }
};

}  // namespace vmio
