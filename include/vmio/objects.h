#pragma once
/// @file
/// Creating the library's classes by their programmatic names ("VMIO.Axis").
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
};

/// Every creatable class, in a stable order.
VMIO_API std::span<const ClassInfo> Classes();

/// The class of a programmatic or short name ("VMIO.Axis" or "axis", case-insensitive), or
/// nullptr when no class has that name.
VMIO_API const ClassInfo* FindClass(std::string_view name);

/// Creates a class by programmatic name (case-insensitive, as the registry is).
/// Raises 429 "ActiveX component can't create object" for an unknown name.
VMIO_API std::shared_ptr<Object> CreateObject(std::string_view progid);

}  // namespace vmio
