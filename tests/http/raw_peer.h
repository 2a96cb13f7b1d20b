#pragma once
// A scripted HTTP peer on a loopback port, for replies a well-behaved server never gives
// (a body shorter than announced, silence after the headers, oversized headers). Each accepted
// connection runs the script on the peer's thread, one connection at a time.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace vmio::test {

class RawPeer {
 public:
  using Script = std::function<void(RawPeer& peer, int fd)>;

  explicit RawPeer(Script script) : script_(std::move(script)) {
    listen_fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof addr;
    if (listen_fd_ < 0 || ::bind(listen_fd_, reinterpret_cast<sockaddr*>(&addr), len) != 0 ||
        ::listen(listen_fd_, 8) != 0 || ::getsockname(listen_fd_, reinterpret_cast<sockaddr*>(&addr), &len) != 0)
      throw std::runtime_error("RawPeer cannot listen");
    port_ = ntohs(addr.sin_port);
    thread_ = std::thread([this] { Serve(); });
  }
  ~RawPeer() {
    stop_ = true;
    thread_.join();
    ::close(listen_fd_);
  }
  RawPeer(const RawPeer&) = delete;
  RawPeer& operator=(const RawPeer&) = delete;

  std::string Url(const std::string& path) const { return "http://127.0.0.1:" + std::to_string(port_) + path; }
  bool Stopping() const { return stop_; }

  // One request as it came on the wire: the head up to the blank line, then Content-Length
  // bytes of body. "" when the client hung up, or sent nothing within two seconds.
  std::string ReadRequest(int fd) {
    std::string data;
    size_t need = std::string::npos;
    while (data.size() < need && WaitReadable(fd, 2000)) {
      char buf[4096];
      const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
      if (n <= 0) break;
      data.append(buf, static_cast<size_t>(n));
      const size_t head_end = data.find("\r\n\r\n");
      if (need == std::string::npos && head_end != std::string::npos) {
        size_t body = 0;
        const size_t cl = data.find("Content-Length: ");
        if (cl != std::string::npos && cl < head_end) body = std::stoul(data.substr(cl + 16));
        need = head_end + 4 + body;
      }
    }
    return data;
  }

  static void Send(int fd, const std::string& text) {
    for (size_t sent = 0; sent < text.size();) {
      const ssize_t n = ::send(fd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
      if (n <= 0) return;
      sent += static_cast<size_t>(n);
    }
  }

  // Stays silent until the client hangs up or the peer stops (at most ten seconds).
  void WaitForHangUp(int fd) {
    char c;
    while (WaitReadable(fd, 10000) && ::recv(fd, &c, 1, 0) > 0) {
    }
  }

 private:
  // Waits in short slices so that the peer's end is never held up for long.
  bool WaitReadable(int fd, int ms) const {
    for (int waited = 0; waited < ms && !stop_; waited += 20) {
      pollfd p{fd, POLLIN, 0};
      if (::poll(&p, 1, 20) > 0) return true;
    }
    return false;
  }

  void Serve() {
    while (!stop_) {
      if (!WaitReadable(listen_fd_, 20)) continue;
      const int fd = ::accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd < 0) continue;
      script_(*this, fd);
      ::close(fd);
    }
  }

  Script script_;
  int listen_fd_ = -1;
  int port_ = 0;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

// Answers every request on a connection with "ok", keeping what it was sent.
struct RecordingPeer {
  std::mutex mutex;
  std::vector<std::string> requests;
  RawPeer peer{[this](RawPeer& p, int fd) {
    for (std::string req; !(req = p.ReadRequest(fd)).empty();) {
      {
        std::lock_guard lock(mutex);
        requests.push_back(req);
      }
      RawPeer::Send(fd, "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
    }
  }};
  // The i-th request received, "" before it came.
  std::string Request(size_t i) {
    std::lock_guard lock(mutex);
    return i < requests.size() ? requests[i] : "";
  }
};

}  // namespace vmio::test
