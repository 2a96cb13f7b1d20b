#pragma once
// A kernel handle (a file, an event, a timer) closed with its owner. Both of the system's
// "no handle" values, null and INVALID_HANDLE_VALUE, count as none.
#include <windows.h>

#include <utility>

namespace vmio {

class UniqueHandle {
 public:
  UniqueHandle() = default;
  explicit UniqueHandle(HANDLE handle) : handle_(handle) {}
  ~UniqueHandle() { Reset(); }
  UniqueHandle(UniqueHandle&& other) noexcept : handle_(other.Release()) {}
  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    if (this != &other) {
      Reset();
      handle_ = other.Release();
    }
    return *this;
  }

  explicit operator bool() const { return handle_ != nullptr && handle_ != INVALID_HANDLE_VALUE; }
  HANDLE Get() const { return handle_; }
  // Hands the handle over without closing it.
  HANDLE Release() { return std::exchange(handle_, nullptr); }
  void Reset() {
    if (*this) CloseHandle(handle_);
    handle_ = nullptr;
  }

 private:
  HANDLE handle_ = nullptr;
};

}  // namespace vmio
