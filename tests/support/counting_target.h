#pragma once
// A timer target that counts its callbacks and can do one more thing each time.
#include <functional>

#include "vmio/events.h"

namespace vmio::test {

struct CountingTarget : Callbackable {
  int calls = 0;
  std::function<void()> also;
  void Callback() override {
    ++calls;
    if (also) also();
  }
};

}  // namespace vmio::test
