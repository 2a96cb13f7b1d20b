#include "event_loop.h"

#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace vmio::gateway {
namespace {

uint32_t ToEpoll(int events) { return ((events & 1) ? EPOLLIN : 0u) | ((events & 2) ? EPOLLOUT : 0u); }

int FromEpoll(uint32_t events) {
  if (events & (EPOLLERR | EPOLLHUP)) return 3;  // both, so the exchange sees the failure either way
  return ((events & EPOLLIN) ? 1 : 0) | ((events & EPOLLOUT) ? 2 : 0);
}

}  // namespace

EventLoop::EventLoop(Engine& engine, MqttClient& mqtt, Bridge& bridge)
    : engine_(engine), mqtt_(mqtt), bridge_(bridge), epoll_fd_(epoll_create1(EPOLL_CLOEXEC)) {
  if (epoll_fd_ < 0) throw std::runtime_error(std::string("epoll: ") + std::strerror(errno));
  engine_.SetWatchListener([this](int fd, int events) { Watch(fd, events); });
  for (const Engine::Watch& w : engine_.Descriptors()) Watch(w.fd, w.events);
}

EventLoop::~EventLoop() {
  engine_.SetWatchListener(nullptr);
  close(epoll_fd_);
}

void EventLoop::Watch(int fd, int events) {
  if (events == 0) {
    // The engine may tell us after closing it, when the kernel has already forgotten it.
    epoll_ctl(epoll_fd_, EPOLL_CTL_DEL, fd, nullptr);
    return;
  }
  epoll_event ev{};
  ev.events = ToEpoll(events);
  ev.data.fd = fd;
  if (epoll_ctl(epoll_fd_, EPOLL_CTL_MOD, fd, &ev) == 0) return;
  if (errno == ENOENT && epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, fd, &ev) == 0) return;
  throw std::runtime_error("epoll cannot watch descriptor " + std::to_string(fd) + ": " + std::strerror(errno));
}

void EventLoop::EngineReady() {
  epoll_event ready[256];
  const int n = epoll_wait(epoll_fd_, ready, 256, 0);
  for (int i = 0; i < n; ++i) engine_.Ready(ready[i].data.fd, FromEpoll(ready[i].events));
}

void EventLoop::Run(const volatile std::sig_atomic_t& stop) {
  while (!stop) {
    const int64_t now = Engine::Now();
    int64_t wait = std::min(mqtt_.Timeout(now), bridge_.Timeout(now));
    const int64_t engine_wait = engine_.Timeout();
    if (engine_wait >= 0) wait = std::min(wait, engine_wait);
    pollfd fds[2] = {{epoll_fd_, POLLIN, 0}, {mqtt_.Socket(), 0, 0}};
    if (fds[1].fd >= 0) fds[1].events = static_cast<short>(POLLIN | (mqtt_.WantWrite() ? POLLOUT : 0));
    const int n = poll(fds, fds[1].fd >= 0 ? 2 : 1, static_cast<int>(std::min<int64_t>(wait, 1000)));
    if (n < 0 && errno != EINTR) throw std::runtime_error(std::string("poll: ") + std::strerror(errno));
    if (n > 0 && (fds[0].revents & POLLIN)) EngineReady();
    if (engine_.Timeout() == 0) engine_.RunTimers();
    bridge_.DrainEvents();
    if (n > 0 && fds[1].fd >= 0 && fds[1].revents) {
      const int64_t at = Engine::Now();
      if (fds[1].revents & (POLLIN | POLLERR | POLLHUP)) mqtt_.Readable(at);
      if (fds[1].revents & POLLOUT) mqtt_.Writable(at);
    }
    const int64_t after = Engine::Now();
    mqtt_.RunTimers(after);
    bridge_.RunTimers(after);
    // What the broker's messages asked for (writes) and what the bridge published.
    bridge_.DrainEvents();
    if (mqtt_.WantWrite()) mqtt_.Writable(Engine::Now());
  }
}

}  // namespace vmio::gateway
