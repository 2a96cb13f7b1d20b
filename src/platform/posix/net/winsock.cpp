// The socket seam on POSIX sockets.
#include "net/winsock.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
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

bool ConnectIPv4(SocketHandle s, const std::string& dottedAddress, uint16_t port) {
  const sockaddr_in a = IPv4(inet_addr(dottedAddress.c_str()), port);
  return connect(Fd(s), reinterpret_cast<const sockaddr*>(&a), sizeof a) == 0;
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
  const int ms = seconds > INT_MAX / 1000 ? INT_MAX : seconds * 1000;
  int r;
  do r = poll(&p, 1, ms);
  while (r < 0 && errno == EINTR);
  return r < 0 ? -1 : r;
}

int32_t ReceiveBytes(SocketHandle s, uint8_t* buffer, int32_t length, int32_t flags) {
  ssize_t n;
  do n = recv(Fd(s), buffer, length < 0 ? 0 : static_cast<size_t>(length), flags);
  while (n < 0 && errno == EINTR);
  return n < 0 ? -1 : static_cast<int32_t>(n);
}

void CloseSocket(SocketHandle s) { close(Fd(s)); }

int32_t LastSocketError() { return errno; }

}  // namespace vmio
