#pragma once
// Calling an object the way a late-binding automation host does: the member's name through
// GetIDsOfNames, then IDispatch::Invoke; failures become the host's error number and text.
#include <windows.h>

// After windows.h, which they need.
#include <oaidl.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "variant_text.h"

namespace vmio::comshell {

// An automation error as the host reports it.
struct HostError {
  int32_t number;
  std::string description;
};

// The run-time's text for the errors the shell raises itself (5, 13, 91, 429, 438, ...).
HostError StandardError(int32_t number);

enum class CallKind { kGet, kPut };

// Calls the member with the arguments in order (for kPut the last is the new value). Throws
// HostError: 438 for a name the object does not have, else what the object raised, with the
// description from its error info.
OwnedVariant CallByName(IDispatch* object, std::string_view member, CallKind kind, std::span<const VARIANT> args);

}  // namespace vmio::comshell
