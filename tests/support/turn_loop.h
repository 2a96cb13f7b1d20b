#pragma once
// Turning an engine loop in a test until a task has ended, for a bounded time.
#include <chrono>

#include "engine/io.h"

namespace vmio::test {

// True when task ended within limit.
inline bool TurnUntilDone(engine::Io& io, engine::Task<void>& task, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!task.Done() && std::chrono::steady_clock::now() < end) io.loop().RunOnce(50);
  return task.Done();
}

}  // namespace vmio::test
