#include "core/trace.h"

#include <string>
#include <utility>

#include "vmio/trace.h"

namespace vmio {
namespace {

// Set by the host once, before its threads use the library; read-only afterwards.
TraceHandler& Handler() {
  static TraceHandler handler;
  return handler;
}

}  // namespace

void SetTraceHandler(TraceHandler handler) { Handler() = std::move(handler); }

bool Tracing() { return static_cast<bool>(Handler()); }

void Trace(std::string_view text) {
  if (!Tracing()) return;
  try {
    Handler()(text);
  } catch (...) {  // a host's handler must not change what the traced call does
  }
}

}  // namespace vmio
