#pragma once
/// @file
/// Diagnostics: why a call failed, beyond its fixed error number and text.
///
/// The library hands its trace texts to one process-wide handler: each HTTP request's URL (with
/// the password masked), the status line of each reply, the transport's own error text
/// ("Connection refused", a certificate problem), and the Modbus/TCP client's progress texts.
/// The trace is off until a host installs a handler. The handler runs on the thread that made
/// the call, inside it; install it before other threads use the library, and keep it quick.
#include <functional>
#include <string_view>

#include "vmio/export.h"

namespace vmio {

/// Receives one trace text at a time.
using TraceHandler = std::function<void(std::string_view text)>;

/// Installs the handler; an empty one turns the trace off.
VMIO_API void SetTraceHandler(TraceHandler handler);

}  // namespace vmio
