#pragma once
// A raw Modbus/TCP peer on a loopback port, for the replies a real server never sends
// (short, split, silent, closing).
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <mutex>
#include <span>
#include <stdexcept>
#include <thread>
#include <vector>

namespace vmio::test {

inline void SendAll(int fd, std::span<const uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t n = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (n <= 0) return;
    bytes = bytes.subspan(static_cast<size_t>(n));
  }
}

// A listening TCP socket on 127.0.0.1 with an ephemeral port.
class Listener {
 public:
  Listener() {
    fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || listen(fd_, 8) != 0) {
      throw std::runtime_error("listener: cannot listen");
    }
    socklen_t len = sizeof a;
    getsockname(fd_, reinterpret_cast<sockaddr*>(&a), &len);
    port_ = ntohs(a.sin_port);
  }
  ~Listener() { close(fd_); }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  uint16_t Port() const { return port_; }
  int fd() const { return fd_; }
  // Waits at most timeout_ms for a connection; -1 when none came.
  int Accept(int timeout_ms = 5000) const {
    pollfd p{fd_, POLLIN, 0};
    if (poll(&p, 1, timeout_ms) != 1) return -1;
    return accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
  }

 private:
  int fd_ = -1;
  uint16_t port_ = 0;
};

// Accepts connections and hands every complete request frame (the 6-byte header, then as many
// bytes as its length field says) to the handler, on its own thread. The handler answers
// through the descriptor as it likes and returns false to close the connection.
class RawModbusPeer {
 public:
  using Handler = std::function<bool(int fd, const std::vector<uint8_t>& request)>;

  explicit RawModbusPeer(Handler handler) : handler_(std::move(handler)) {
    if (pipe2(wake_, O_CLOEXEC) != 0) throw std::runtime_error("peer: pipe failed");
    thread_ = std::thread([this] { Serve(); });
  }
  ~RawModbusPeer() {
    (void)!write(wake_[1], "x", 1);
    thread_.join();
    for (const Client& c : clients_) close(c.fd);
    close(wake_[0]);
    close(wake_[1]);
  }
  RawModbusPeer(const RawModbusPeer&) = delete;
  RawModbusPeer& operator=(const RawModbusPeer&) = delete;

  uint16_t Port() const { return listener_.Port(); }
  int Connections() const {
    std::lock_guard lock(mutex_);
    return connections_;
  }

 private:
  struct Client {
    int fd;
    std::vector<uint8_t> pending;
  };

  void Serve() {
    for (;;) {
      std::vector<pollfd> fds{{wake_[0], POLLIN, 0}, {listener_.fd(), POLLIN, 0}};
      for (const Client& c : clients_) fds.push_back({c.fd, POLLIN, 0});
      if (poll(fds.data(), fds.size(), -1) < 0) continue;
      if (fds[0].revents) return;
      if (fds[1].revents) {
        clients_.push_back({accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC), {}});
        std::lock_guard lock(mutex_);
        ++connections_;
      }
      for (size_t i = 2; i < fds.size(); ++i) {
        if (fds[i].revents && !Read(clients_[i - 2])) {
          close(clients_[i - 2].fd);
          clients_[i - 2].fd = -1;
        }
      }
      std::erase_if(clients_, [](const Client& c) { return c.fd < 0; });
    }
  }

  bool Read(Client& c) {
    uint8_t buffer[512];
    const ssize_t n = recv(c.fd, buffer, sizeof buffer, 0);
    if (n <= 0) return false;
    c.pending.insert(c.pending.end(), buffer, buffer + n);
    while (c.pending.size() >= 6) {
      const size_t size = 6 + static_cast<size_t>(c.pending[4] << 8 | c.pending[5]);
      if (c.pending.size() < size) break;
      const std::vector<uint8_t> request(c.pending.begin(), c.pending.begin() + static_cast<ptrdiff_t>(size));
      c.pending.erase(c.pending.begin(), c.pending.begin() + static_cast<ptrdiff_t>(size));
      if (!handler_(c.fd, request)) return false;
    }
    return true;
  }

  Handler handler_;
  Listener listener_;
  int wake_[2] = {-1, -1};
  std::vector<Client> clients_;
  mutable std::mutex mutex_;
  int connections_ = 0;
  std::thread thread_;
};

}  // namespace vmio::test
