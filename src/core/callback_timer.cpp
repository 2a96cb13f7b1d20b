// Timer callbacks: each thread keeps a registry of its timers' targets, keyed by the
// identifier the system timer was given, and the timer procedure calls the target found
// there. The registry holds a strong reference to each target while its timer runs.
#include <map>
#include <utility>

#include "core/errors.h"
#include "core/thread_timers.h"
#include "vmio/events.h"

namespace vmio {
namespace {

struct Registry {
  std::map<int32_t, std::shared_ptr<Callbackable>> targets;

  ~Registry() {
    // Targets released at thread exit may still look at the registry from their destructors.
    std::map<int32_t, std::shared_ptr<Callbackable>> doomed;
    doomed.swap(targets);
  }

  static Registry& OfThisThread() {
    thread_local Registry registry;
    return registry;
  }
};

void TimerProcedureOf(int32_t id) {
  Registry& registry = Registry::OfThisThread();
  const auto it = registry.targets.find(id);
  if (it == registry.targets.end()) return;  // stopped meanwhile
  // Our own reference: the callback may stop its own timer.
  const std::shared_ptr<Callbackable> target = it->second;
  if (!target) return;
  try {
    target->Callback();
  } catch (...) {
    // An error in a callback neither reaches the host nor stops the timer.
  }
}

}  // namespace

int32_t StartCallbackTimer(std::shared_ptr<Callbackable> target, int32_t interval) {
  // A start the system refuses is registered under 0, and never fires. The system's timers
  // come first, so at thread exit they outlive the registry, whose targets may stop timers.
  const int32_t id = SetThreadTimer(interval, &TimerProcedureOf);
  Registry& registry = Registry::OfThisThread();
  if (!registry.targets.try_emplace(id, std::move(target)).second) {
    KillThreadTimer(id);
    Raise(kKeyAlreadyAssociated);
  }
  return id;
}

void StopCallbackTimer(int32_t id) {
  KillThreadTimer(id);
  Registry& registry = Registry::OfThisThread();
  const auto it = registry.targets.find(id);
  if (it == registry.targets.end()) Raise(kInvalidProcedureCall);
  // Released after the entry is gone, so a destructor that stops other timers finds the
  // registry consistent.
  const std::shared_ptr<Callbackable> target = std::move(it->second);
  registry.targets.erase(it);
}

}  // namespace vmio
