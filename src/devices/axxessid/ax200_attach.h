#pragma once
// What the AxxessID drivers share: attaching to the AX200 software on this computer.
#include <string>

#include "access/access_bridge.h"

namespace vmio {

// Hands the device string to the software, then this computer's first IPv4 address (empty
// when it has none), so that the software's objects attach here. Returns whether the software
// is present; the caller records that before raising RaiseSoftwareNotFound.
bool AttachToAX200(AccessBridge& bridge, const std::string& device);

// 45001 "The AX200 software is not found".
[[noreturn]] void RaiseSoftwareNotFound();

}  // namespace vmio
