#pragma once
// The library's own trace routine: texts go to the host's handler (vmio/trace.h), or nowhere.
#include <sstream>
#include <string_view>

namespace vmio {

// Whether a handler is installed, so callers build texts only when someone reads them.
bool Tracing();
void Trace(std::string_view text);

// The parts written one after another, as one trace text.
template <class... Parts>
void Trace(const Parts&... parts) {
  if (!Tracing()) return;
  std::ostringstream text;
  (text << ... << parts);
  Trace(std::string_view(text.str()));
}

}  // namespace vmio
