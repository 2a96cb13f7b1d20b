// The socket seam on POSIX sockets.
#include "net/socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "engine/waits.h"

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

int32_t BeginConnectIPv4(SocketHandle s, const std::string& dottedAddress, uint16_t port) {
  const sockaddr_in a = IPv4(inet_addr(dottedAddress.c_str()), port);
  const int flags = fcntl(Fd(s), F_GETFL);
  if (flags < 0 || fcntl(Fd(s), F_SETFL, flags | O_NONBLOCK) != 0) return -1;
  if (connect(Fd(s), reinterpret_cast<const sockaddr*>(&a), sizeof a) == 0) return 1;
  return errno == EINPROGRESS ? 0 : -1;
}

bool EndConnect(SocketHandle s, int32_t waited) {
  int error = 0;
  if (waited == 0) {
    error = ETIMEDOUT;
  } else if (waited < 0) {
    error = errno;
  } else {
    socklen_t len = sizeof error;
    if (getsockopt(Fd(s), SOL_SOCKET, SO_ERROR, &error, &len) != 0) error = errno;
  }
  const int flags = fcntl(Fd(s), F_GETFL);
  if (flags >= 0) fcntl(Fd(s), F_SETFL, flags & ~O_NONBLOCK);
  errno = error;
  return error == 0;
}

int32_t SendBytes(SocketHandle s, std::span<const uint8_t> bytes) {
  ssize_t n;
  // MSG_NOSIGNAL: a peer that went away must fail the send, not kill the host with SIGPIPE.
  do n = send(Fd(s), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  while (n < 0 && errno == EINTR);
  return n < 0 ? -1 : static_cast<int32_t>(n);
}

engine::Task<int32_t> WaitForSocket(engine::Loop& loop, SocketHandle s, int interest, int64_t deadline) {
  // poll underneath (the loop's), not select: a descriptor above FD_SETSIZE must not overrun
  // an fd_set; a signal that cuts the wait short only turns the loop again, up to the deadline.
  co_return co_await engine::Ready(loop, Fd(s), interest, deadline) ? 1 : 0;
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

bool NoDescriptorLeft() { return errno == EMFILE || errno == ENFILE; }

}  // namespace vmio
