#include "core/tick_source.h"

#include <atomic>

#include "core/pumping_wait.h"

namespace vmio {
namespace {

std::atomic<TickSource*> installed{nullptr};

}  // namespace

void SetTickSourceForTesting(TickSource* source) { installed.store(source, std::memory_order_release); }

int64_t ClockMilliseconds() {
  TickSource* source = installed.load(std::memory_order_acquire);
  return source ? source->Milliseconds() : SystemMilliseconds();
}

bool IdleWait(std::intptr_t handle, int32_t milliseconds) {
  TickSource* source = installed.load(std::memory_order_acquire);
  return source ? source->Idle(handle, milliseconds) : WaitForHandle(handle, milliseconds);
}

}  // namespace vmio
