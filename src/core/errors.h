#pragma once
// Raising the library's errors with their fixed texts.
#include <cstdint>
#include <string>

#include "vmio/error.h"
#include "vmio/variant.h"

namespace vmio {

// Raises an automation error; with no description the run-time's standard text applies.
[[noreturn]] void Raise(int32_t number);
[[noreturn]] void Raise(int32_t number, std::string description);

// 45003 "Not connected".
[[noreturn]] void RaiseNotConnected();
// 45001: Connect failed; most drivers say "Unable to connect to the device".
[[noreturn]] void RaiseConnectionFailed(std::string description = "Unable to connect to the device");
// 45004 "Port " + (Index + 1) + "is not an output port": the missing blank before "is" is
// deliberate and hosts compare the text.
[[noreturn]] void RaiseNotAnOutput(int32_t index);
// 45005 "Unable to connect to the device": a value could not be read or written.
[[noreturn]] void RaiseGettingValue();

// Raises 13 (type mismatch) unless the value is a Boolean variant; returns the Boolean.
bool RequireBoolean(const Variant& value);

}  // namespace vmio
