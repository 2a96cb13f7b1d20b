#pragma once
// One exchange at a time on a transport.
//
// A host's code runs inside library calls: its trace handler at every trace text, its timers
// while a reply is awaited. From there it may call back into the very device whose exchange
// is under way, and the transport (one connection, one receive buffer, one pending answer)
// cannot serve a second exchange inside the first. The inner call raises ReentrantCall (the
// run-time's 5 "Invalid procedure call or argument", the error for a call the object cannot
// take in its present state) before it touches anything, and the outer one goes on unharmed.
#include "core/errors.h"

namespace vmio {

class ReentrantCall final : public AutomationError {
 public:
  ReentrantCall() : AutomationError(kInvalidProcedureCall) {}
};

// Holds busy for its lifetime; raises ReentrantCall when busy is already held.
class CallGuard {
 public:
  explicit CallGuard(bool& busy) : busy_(busy) {
    if (busy_) throw ReentrantCall();
    busy_ = true;
  }
  ~CallGuard() { busy_ = false; }
  CallGuard(const CallGuard&) = delete;
  CallGuard& operator=(const CallGuard&) = delete;

 private:
  bool& busy_;
};

}  // namespace vmio
