#include "engine/task.h"

#include <array>
#include <cstdlib>
#include <new>
#include <vector>

namespace vmio::engine::detail {
namespace {

constexpr std::size_t kGrain = 64;
constexpr std::size_t kClasses = 32;  // frames up to 2 KiB are kept
constexpr std::size_t kKeptPerClass = 64;

// Blocks by size class; what a thread keeps is bounded, and freed when the thread ends.
struct FrameCache {
  std::array<std::vector<void*>, kClasses> free;
  ~FrameCache() {
    for (std::vector<void*>& blocks : free)
      for (void* block : blocks) ::operator delete(block);
  }
};

thread_local FrameCache cache;

std::size_t ClassOf(std::size_t size) { return (size + kGrain - 1) / kGrain; }

}  // namespace

void* AllocateFrame(std::size_t size) {
  const std::size_t c = ClassOf(size);
  if (c < kClasses && !cache.free[c].empty()) {
    void* block = cache.free[c].back();
    cache.free[c].pop_back();
    return block;
  }
  return ::operator new(c < kClasses ? c * kGrain : size);
}

void FreeFrame(void* frame, std::size_t size) noexcept {
  const std::size_t c = ClassOf(size);
  if (c < kClasses && cache.free[c].size() < kKeptPerClass) {
    try {
      cache.free[c].push_back(frame);
      return;
    } catch (...) {
      // No room to keep it: it goes back to the heap.
    }
  }
  ::operator delete(frame);
}

}  // namespace vmio::engine::detail
