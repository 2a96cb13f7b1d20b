#pragma once
// How a transport's narrow call reports a failed exchange with a device: as a value beside
// the reply, never raised, so a caller can be suspended and resumed around the call. The
// transport's raising members raise the same number and text.
#include <cstdint>
#include <string>
#include <utility>

#include "core/errors.h"

namespace vmio {

struct ExchangeError {
  int32_t error = 0;  // the transport's error number; 0 when the exchange completed
  std::string error_text;

  bool Ok() const { return error == 0; }
  void RaiseIfFailed() const {
    if (error != 0) Raise(error, error_text);
  }
};

// A result of type Result that carries only the failure.
template <class Result>
Result ExchangeFailure(int32_t number, std::string text) {
  Result result;
  result.error = number;
  result.error_text = std::move(text);
  return result;
}

}  // namespace vmio
