#pragma once
// What a call raised, as a host sees it.
#include <functional>
#include <string>

#include "vmio/error.h"

namespace vmio::test {

// "NUMBER DESCRIPTION" of the automation error the call raised, or "none".
inline std::string Raised(const std::function<void()>& call) {
  try {
    call();
  } catch (const AutomationError& e) {
    return std::to_string(e.Number()) + " " + e.Description();
  }
  return "none";
}

}  // namespace vmio::test
