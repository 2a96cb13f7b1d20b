#pragma once
/// @file
/// The interface an object implements to be called back by a timer (see vmio/events.h).
#include "vmio/export.h"

namespace vmio {

/// What a timer calls back (vmio::StartCallbackTimer).
class VMIO_API Callbackable {
 public:
  virtual ~Callbackable() = default;
  /// Called on the thread that started the timer, each time its interval has elapsed and
  /// that thread lets pending events run. Errors raised here are swallowed.
  virtual void Callback() = 0;
};

}  // namespace vmio
