// The socket seam on POSIX sockets.
#include "net/socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>

namespace vmio {
namespace {

int Fd(SocketHandle s) { return static_cast<int>(s); }

sockaddr_in IPv4(in_addr_t address, uint16_t port) {
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_port = htons(port);
  a.sin_addr.s_addr = address;
  return a;
}

}  // namespace

void StartSockets() {}
void StopSockets() {}

SocketHandle OpenSocket(SocketKind kind) {
  const int fd = kind == SocketKind::Tcp ? socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP)
                                         : socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
  return fd < 0 ? kNoSocket : fd;
}

bool BindAnyLocal(SocketHandle s) {
  const sockaddr_in a = IPv4(htonl(INADDR_ANY), 0);
  return bind(Fd(s), reinterpret_cast<const sockaddr*>(&a), sizeof a) == 0;
}

bool ConnectIPv4(SocketHandle s, const std::string& dottedAddress, uint16_t port, int32_t timeoutMs) {
  const sockaddr_in a = IPv4(inet_addr(dottedAddress.c_str()), port);
  const int flags = fcntl(Fd(s), F_GETFL);
  if (flags < 0 || fcntl(Fd(s), F_SETFL, flags | O_NONBLOCK) != 0) return false;
  bool connected = connect(Fd(s), reinterpret_cast<const sockaddr*>(&a), sizeof a) == 0;
  if (!connected && errno == EINPROGRESS) {
    pollfd p{Fd(s), POLLOUT, 0};
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(std::max(timeoutMs, 0));
    int r;
    do {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      r = poll(&p, 1, static_cast<int>(std::clamp<int64_t>(left.count(), 0, INT_MAX)));
    } while (r < 0 && errno == EINTR);
    int error = 0;
    socklen_t len = sizeof error;
    connected = r == 1 && getsockopt(Fd(s), SOL_SOCKET, SO_ERROR, &error, &len) == 0 && error == 0;
    if (r == 0) errno = ETIMEDOUT;
    if (r == 1 && error != 0) errno = error;
  }
  const int saved = errno;
  fcntl(Fd(s), F_SETFL, flags);
  errno = saved;
  return connected;
}

int32_t SendBytes(SocketHandle s, std::span<const uint8_t> bytes) {
  ssize_t n;
  // MSG_NOSIGNAL: a peer that went away must fail the send, not kill the host with SIGPIPE.
  do n = send(Fd(s), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  while (n < 0 && errno == EINTR);
  return n < 0 ? -1 : static_cast<int32_t>(n);
}

int32_t SelectReadable(SocketHandle s, int32_t seconds) {
  // What select does with a bad handle or time-out: fail, so the recv that follows reports.
  if (s < 0 || seconds < 0) {
    errno = s < 0 ? EBADF : EINVAL;
    return -1;
  }
  // poll rather than select: a descriptor above FD_SETSIZE must not overrun an fd_set.
  pollfd p{Fd(s), POLLIN, 0};
  // A signal cuts poll short; waiting again for the whole time would let a host's periodic
  // signals stretch the wait without end, so only what is left of it is waited again.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  int r;
  do {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    r = poll(&p, 1, static_cast<int>(std::clamp<int64_t>(left.count(), 0, INT_MAX)));
  } while (r < 0 && errno == EINTR);
  return r < 0 ? -1 : r;
}

int32_t ReceiveBytes(SocketHandle s, uint8_t* buffer, int32_t length, int32_t flags) {
  ssize_t n;
  // Never blocks: Linux may report a UDP socket readable and then drop the datagram for a bad
  // checksum, and a blocking recv would then wait past the time-out for good.
  do n = recv(Fd(s), buffer, length < 0 ? 0 : static_cast<size_t>(length), flags | MSG_DONTWAIT);
  while (n < 0 && errno == EINTR);
  return n < 0 ? -1 : static_cast<int32_t>(n);
}

void CloseSocket(SocketHandle s) { close(Fd(s)); }

int32_t LastSocketError() { return errno; }

}  // namespace vmio
