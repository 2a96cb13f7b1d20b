#pragma once
// Task<T>: a device exchange written as straight-line code that suspends where it waits for
// its device. A task does not start until it is awaited (by another task) or started (Start,
// by the engine or a blocking runner); when it ends, the awaiting task resumes in its place.
// Destroying a task destroys its frame and every task it awaits, and each wait in those
// frames unregisters its descriptor and timer: that is how an exchange is cancelled.
// Exceptions travel as the result: co_await (or Result()) rethrows them.
#include <coroutine>
#include <cstddef>
#include <exception>
#include <functional>
#include <optional>
#include <utility>
#include <variant>

namespace vmio::engine {

template <typename T>
class Task;

namespace detail {

struct PromiseBase;

// Where a task goes when it ends: to its awaiter, or (a started task) nowhere, after telling
// whoever started it.
struct FinalAwaiter {
  bool await_ready() noexcept { return false; }
  template <typename P>
  std::coroutine_handle<> await_suspend(std::coroutine_handle<P> self) noexcept {
    auto& p = self.promise();
    if (p.continuation) return p.continuation;
    // The callback may destroy this frame, so nothing of it is used after.
    if (p.on_done) std::exchange(p.on_done, nullptr)();
    return std::noop_coroutine();
  }
  void await_resume() noexcept {}
};

// Frames come from a per-thread cache of recently freed blocks: a device exchange makes
// several short-lived frames, and the blocking members make them on every call.
void* AllocateFrame(std::size_t size);
void FreeFrame(void* frame, std::size_t size) noexcept;

struct PromiseBase {
  static void* operator new(std::size_t size) { return AllocateFrame(size); }
  static void operator delete(void* frame, std::size_t size) noexcept { FreeFrame(frame, size); }

  std::coroutine_handle<> continuation;
  std::function<void()> on_done;  // a started task's: told once it has ended
  std::exception_ptr error;

  std::suspend_always initial_suspend() noexcept { return {}; }
  FinalAwaiter final_suspend() noexcept { return {}; }
  void unhandled_exception() noexcept { error = std::current_exception(); }
};

template <typename T>
struct Promise : PromiseBase {
  std::optional<T> value;
  Task<T> get_return_object() noexcept;
  template <typename U>
  void return_value(U&& v) {
    value.emplace(std::forward<U>(v));
  }
  T Take() {
    if (error) std::rethrow_exception(error);
    return std::move(*value);
  }
};

template <>
struct Promise<void> : PromiseBase {
  Task<void> get_return_object() noexcept;
  void return_void() noexcept {}
  void Take() {
    if (error) std::rethrow_exception(error);
  }
};

}  // namespace detail

template <typename T = void>
class [[nodiscard]] Task {
 public:
  using promise_type = detail::Promise<T>;
  using Handle = std::coroutine_handle<promise_type>;

  Task() = default;
  explicit Task(Handle h) : handle_(h) {}
  Task(Task&& other) noexcept : handle_(std::exchange(other.handle_, {})) {}
  Task& operator=(Task&& other) noexcept {
    if (this != &other) {
      Reset();
      handle_ = std::exchange(other.handle_, {});
    }
    return *this;
  }
  ~Task() { Reset(); }

  bool Valid() const { return static_cast<bool>(handle_); }
  bool Done() const { return handle_ && handle_.done(); }

  // Runs the task up to its first wait; on_done is called once it has ended (it may destroy
  // the task). For the top of a chain: an awaited task is started by its awaiter.
  void Start(std::function<void()> on_done) {
    handle_.promise().on_done = std::move(on_done);
    handle_.resume();
  }
  // The result of an ended task (its exception rethrown).
  T Result() { return handle_.promise().Take(); }

  // Awaiting a task runs it; the awaiter resumes when it ends, with its result.
  auto operator co_await() noexcept {
    struct Awaiter {
      Handle handle;
      bool await_ready() noexcept { return false; }
      std::coroutine_handle<> await_suspend(std::coroutine_handle<> awaiting) noexcept {
        handle.promise().continuation = awaiting;
        return handle;
      }
      T await_resume() { return handle.promise().Take(); }
    };
    return Awaiter{handle_};
  }

 private:
  void Reset() {
    if (handle_) std::exchange(handle_, {}).destroy();
  }
  Handle handle_;
};

namespace detail {
template <typename T>
Task<T> Promise<T>::get_return_object() noexcept {
  return Task<T>(std::coroutine_handle<Promise<T>>::from_promise(*this));
}
inline Task<void> Promise<void>::get_return_object() noexcept {
  return Task<void>(std::coroutine_handle<Promise<void>>::from_promise(*this));
}
}  // namespace detail

}  // namespace vmio::engine
