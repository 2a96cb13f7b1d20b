// Name resolution through c-ares, driven by the Io's loop: c-ares says which sockets to watch
// (its socket-state callback) and when to look again (ares_timeout); the loop does the waiting
// and hands readiness back with ares_process_fd.
#include "net/resolver.h"

#include <ares.h>
#include <arpa/inet.h>
#include <netinet/in.h>

#include <coroutine>
#include <new>
#include <optional>

namespace vmio {

struct Resolver::State {
  engine::Loop& loop;
  ares_channel channel = nullptr;
  std::optional<engine::Loop::TimerId> timer;

  // Calls c-ares back for what is ready (ARES_SOCKET_BAD: nothing, only time has passed),
  // then sets the timer for its next time-out, if a look-up is still under way.
  void Process(ares_socket_t readable, ares_socket_t writable) {
    ares_process_fd(channel, readable, writable);
    Rearm();
  }
  void Rearm() {
    if (timer) loop.CancelTimer(*timer);
    timer.reset();
    timeval left{};
    if (!ares_timeout(channel, nullptr, &left)) return;
    const int64_t ms = int64_t{left.tv_sec} * 1000 + (left.tv_usec + 999) / 1000;
    timer = loop.AddTimer(engine::NowMs() + ms, [this] {
      timer.reset();
      Process(ARES_SOCKET_BAD, ARES_SOCKET_BAD);
    });
  }

  static void OnSocketState(void* data, ares_socket_t fd, int readable, int writable) {
    auto& state = *static_cast<State*>(data);
    if (!readable && !writable) {
      state.loop.Unwatch(fd);
      return;
    }
    const int interest = (readable ? engine::kReadable : 0) | (writable ? engine::kWritable : 0);
    state.loop.Watch(fd, interest, [&state, fd](int ready) {
      state.Process(ready & engine::kReadable ? fd : ARES_SOCKET_BAD, ready & engine::kWritable ? fd : ARES_SOCKET_BAD);
    });
  }
};

namespace {

// One look-up's answer. Shared between the waiting task and c-ares' callback: a task that is
// destroyed mid-look-up leaves it to the callback, which c-ares always makes (at the latest
// when the channel goes).
struct Answer {
  std::coroutine_handle<> waiting;
  bool done = false;
  std::vector<std::string> addresses;
};

std::string AddressText(const sockaddr* address) {
  char text[INET6_ADDRSTRLEN] = {};
  if (address->sa_family == AF_INET) {
    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(address)->sin_addr, text, sizeof text);
    return text;
  }
  inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr, text, sizeof text);
  return "[" + std::string(text) + "]";
}

void OnAnswer(void* arg, int status, int, ares_addrinfo* result) {
  auto* answer = static_cast<std::shared_ptr<Answer>*>(arg);
  const std::shared_ptr<Answer> kept = std::move(*answer);
  delete answer;
  if (status == ARES_SUCCESS && result) {
    for (const ares_addrinfo_node* node = result->nodes; node; node = node->ai_next) {
      if (node->ai_family == AF_INET || node->ai_family == AF_INET6)
        kept->addresses.push_back(AddressText(node->ai_addr));
    }
  }
  if (result) ares_freeaddrinfo(result);
  kept->done = true;
  // The channel going (ARES_EDESTRUCTION) resumes nobody: the tasks of its Io are gone.
  if (kept->waiting && status != ARES_EDESTRUCTION) std::exchange(kept->waiting, {}).resume();
}

class Lookup {
 public:
  Lookup(Resolver::State& state, std::string host) : state_(state), host_(std::move(host)) {}
  Lookup(const Lookup&) = delete;
  Lookup& operator=(const Lookup&) = delete;
  ~Lookup() {
    if (answer_) answer_->waiting = {};  // destroyed mid-look-up: the answer goes nowhere
  }

  bool await_ready() const noexcept { return false; }
  bool await_suspend(std::coroutine_handle<> waiting) {
    answer_ = std::make_shared<Answer>();
    ares_addrinfo_hints hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    ares_getaddrinfo(state_.channel, host_.c_str(), nullptr, &hints, &OnAnswer, new std::shared_ptr<Answer>(answer_));
    if (answer_->done) return false;  // answered at once (the hosts file, a numeric address)
    answer_->waiting = waiting;
    state_.Rearm();
    return true;
  }
  std::vector<std::string> await_resume() { return std::move(answer_->addresses); }

 private:
  Resolver::State& state_;
  std::string host_;
  std::shared_ptr<Answer> answer_;
};

}  // namespace

Resolver::Resolver(engine::Io& io) : state_(std::make_unique<State>(State{io.loop(), nullptr, std::nullopt})) {
  ares_options options{};
  options.sock_state_cb = &State::OnSocketState;
  options.sock_state_cb_data = state_.get();
  if (ares_init_options(&state_->channel, &options, ARES_OPT_SOCK_STATE_CB) != ARES_SUCCESS) throw std::bad_alloc();
}

Resolver::~Resolver() {
  if (state_->timer) state_->loop.CancelTimer(*state_->timer);
  ares_destroy(state_->channel);  // unwatches its sockets through the callback
}

engine::Task<std::vector<std::string>> Resolver::Resolve(std::string host) {
  co_return co_await Lookup(*state_, std::move(host));
}

}  // namespace vmio
