#include "engine/io.h"

namespace vmio::engine {
namespace {

struct ThreadIo {
  std::unique_ptr<Io> io;
  bool busy = false;
};

thread_local ThreadIo thread_io;

}  // namespace

Io::~Io() {
  // Services go in reverse order of making: a later one may use an earlier one.
  while (!services_.empty()) services_.pop_back();
}

BlockingIo::BlockingIo() {
  if (thread_io.busy) {
    own_ = std::make_unique<Io>();
    io_ = own_.get();
    return;
  }
  if (!thread_io.io) thread_io.io = std::make_unique<Io>();
  thread_io.busy = true;
  io_ = thread_io.io.get();
}

BlockingIo::~BlockingIo() {
  if (!own_) thread_io.busy = false;
}

}  // namespace vmio::engine
