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

std::string MaskPassword(std::string_view url) {
  const size_t scheme = url.find("://");
  const size_t start = scheme == std::string_view::npos ? 0 : scheme + 3;
  const size_t end = url.find_first_of("/?#", start);
  const std::string_view authority = url.substr(start, end == std::string_view::npos ? url.npos : end - start);
  const size_t at = authority.rfind('@');
  if (at == std::string_view::npos) return std::string(url);
  const size_t colon = authority.find(':');
  if (colon == std::string_view::npos || colon > at) return std::string(url);
  std::string masked(url.substr(0, start + colon + 1));
  masked += "***";
  masked += url.substr(start + at);
  return masked;
}

}  // namespace vmio
