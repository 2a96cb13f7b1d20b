#pragma once
/// @file
/// The device contract every driver implements (vmio::IODevice).
#include <cstdint>
#include <string>

#include "vmio/export.h"
#include "vmio/object.h"
#include "vmio/variant.h"

namespace vmio {

/// A value that stands for "not known".
enum IOEnum : int32_t { IOUnknown = -1 };

/// Which way a port goes (IODevice::PortDirection).
enum IOPortDirection : int32_t {
  IOInput = 1,          ///< read only: a digital input, a sensor
  IOOutput = 2,         ///< can be switched: a relay, a power socket
  IOBidirectional = 3,  ///< read and written: a door's mode, a serial command
};

/// The error numbers the drivers raise, with their fixed descriptions.
enum IOErrors : int32_t {
  IOErrorBase = 45000,                  ///< the first of the drivers' numbers
  IOErrorConnectionFailed = 45001,      ///< "Unable to connect to the device"
  IOErrorAuthFailed = 45002,            ///< declared for hosts; raised by no driver
  IOErrorNotConnected = 45003,          ///< "Not connected"
  IOErrorInvalidPortDirection = 45004,  ///< a write to a port that is no output ("Port 1is not an output port")
  IOErrorGettingValue = 45005,          ///< the port's value could not be read (each driver's text)
};

/// A device: the interface every driver implements.
///
/// Lifecycle: a driver is created unconnected with an empty port table. Connect(Device)
/// stores the device string, asks the device for its layout once and builds the table;
/// Ports/PortDirection/PortType/PortName answer from it. Disconnect marks the object
/// unconnected and keeps the table, so directions and types of the last connection still
/// answer. Connect may be called again to rebuild the table. A Connect that fails leaves the
/// object unconnected (Ports then raises 45003). Every call blocks the caller's thread until
/// the device answers or the driver's documented time-out passes; failures are raised as
/// AutomationError, never returned.
class VMIO_API IODevice : public Object {
 public:
  /// Connects to a device string (for the HTTP makes "[https://][user:password@]host[:port]")
  /// and builds the port table; raises 45001 when the device cannot be reached or refuses.
  virtual void Connect(const std::string& Device) = 0;
  /// Marks the object unconnected; the port table stays.
  virtual void Disconnect() = 0;
  /// The number of ports; raises 45003 when not connected.
  virtual int32_t Ports() = 0;
  /// The direction of the port at a 0-based index (an IOPortDirection); 9 for a bad index.
  virtual int32_t PortDirection(int32_t Index) = 0;
  /// The automation type code of the port's value (11 Boolean, 8 string).
  virtual int32_t PortType(int32_t Index) = 0;
  /// The port's name ("Input 1", or what the device calls it).
  virtual std::string PortName(int32_t Index) = 0;
  /// Reads the port's value from the device (drivers cache a read for a short while).
  virtual Variant PortValue(int32_t Index) = 0;
  /// The property put: switch an output.
  virtual void PortValue(int32_t Index, const Variant& NewValue) = 0;

  /// The interface's members in slot order, dispatch ids 1 to 7 (the put shares PortValue's).
  static const MemberTable kMembers;
  const MemberTable& Members() const override { return kMembers; }
};

}  // namespace vmio
