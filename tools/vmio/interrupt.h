#pragma once
// Ctrl-C as something a wait can wait for.
#include "vmio/events.h"

namespace vmio::cli {

// While one lives, SIGINT no longer ends the program: it makes Handle() ready to read, so a
// pumping wait on it returns at once. The previous handler comes back when it is destroyed.
class InterruptWatch {
 public:
  InterruptWatch();
  ~InterruptWatch();
  InterruptWatch(const InterruptWatch&) = delete;
  InterruptWatch& operator=(const InterruptWatch&) = delete;

  WaitHandle Handle() const;
};

}  // namespace vmio::cli
