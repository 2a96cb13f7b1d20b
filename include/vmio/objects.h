#pragma once
/// @file
/// Creating the library's classes by name: the programmatic name ("VMIO.Axis") or the short
/// name ("axis"), in any case, the same rule for every entry point.
#include <memory>
#include <span>
#include <string_view>

#include "vmio/error.h"  // what every call raises
#include "vmio/export.h"
#include "vmio/io_device.h"

namespace vmio {

/// A creatable class.
struct ClassInfo {
  std::string_view progid;              ///< "VMIO.Axis"
  std::string_view short_name;          ///< "axis", for command lines
  std::shared_ptr<Object> (*create)();  ///< makes a new instance
  bool lists_devices = false;           ///< an IODeviceEnumerator of devices found on this machine
  /// What Connect takes ("[user:password@]host[:port]"); empty for a class that is not a device
  /// one connects to (the bare interface, an enumerator).
  std::string_view device_string = {};
  std::string_view description = {};  ///< one line for people
};

/// Every creatable class, in a stable order.
VMIO_API std::span<const ClassInfo> Classes();

/// The class of a programmatic or short name ("VMIO.Axis" or "axis", case-insensitive), or
/// nullptr when no class has that name.
VMIO_API const ClassInfo* FindClass(std::string_view name);

/// Creates the class FindClass finds for name. Raises 429 "ActiveX component can't create
/// object" when it finds none.
VMIO_API std::shared_ptr<Object> CreateObject(std::string_view name);

}  // namespace vmio
