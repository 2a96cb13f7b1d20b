#pragma once
// The port a socket was bound to (an ephemeral one included), for simulators that bind port 0.
#include <netinet/in.h>
#include <sys/socket.h>

namespace vmio::sim {

inline int BoundPort(int fd) {
  sockaddr_in a{};
  socklen_t len = sizeof a;
  getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
  return ntohs(a.sin_port);
}

}  // namespace vmio::sim
