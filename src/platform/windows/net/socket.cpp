// The socket seam on Winsock 2.2.
#include "net/socket.h"

#include <winsock2.h>

#include <algorithm>

#include "engine/waits.h"

namespace vmio {
namespace {

constexpr int64_t kWaitSliceMs = 50;

SOCKET Sock(SocketHandle s) { return static_cast<SOCKET>(s); }

sockaddr_in IPv4(unsigned long address, uint16_t port) {
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_port = htons(port);
  a.sin_addr.s_addr = address;
  return a;
}

// The error a socket holds for its next call (taking it clears it), or 0.
int PendingError(SocketHandle s) {
  int error = 0;
  int length = sizeof error;
  if (getsockopt(Sock(s), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &length) != 0) return 0;
  return error;
}

}  // namespace

void StartSockets() {
  WSADATA data;
  WSAStartup(MAKEWORD(2, 2), &data);
}

void StopSockets() { WSACleanup(); }

SocketHandle OpenSocket(SocketKind kind) {
  const SOCKET s =
      kind == SocketKind::Tcp ? socket(AF_INET, SOCK_STREAM, IPPROTO_TCP) : socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  if (s == INVALID_SOCKET) return kNoSocket;
  // Not inherited by processes the host starts, as close-on-exec does elsewhere.
  SetHandleInformation(reinterpret_cast<HANDLE>(s), HANDLE_FLAG_INHERIT, 0);
  return static_cast<SocketHandle>(s);
}

bool BindAnyLocal(SocketHandle s) {
  const sockaddr_in a = IPv4(htonl(INADDR_ANY), 0);
  return bind(Sock(s), reinterpret_cast<const sockaddr*>(&a), sizeof a) == 0;
}

int32_t BeginConnectIPv4(SocketHandle s, const std::string& dottedAddress, uint16_t port) {
  const sockaddr_in a = IPv4(inet_addr(dottedAddress.c_str()), port);
  // Non-blocking for the connect only, so the wait ends at the time-out, not the system's.
  u_long on = 1;
  if (ioctlsocket(Sock(s), FIONBIO, &on) != 0) return -1;
  if (connect(Sock(s), reinterpret_cast<const sockaddr*>(&a), sizeof a) == 0) return 1;
  return WSAGetLastError() == WSAEWOULDBLOCK ? 0 : -1;
}

bool EndConnect(SocketHandle s, int32_t waited) {
  int error = waited == 0 ? WSAETIMEDOUT : waited < 0 ? WSAGetLastError() : PendingError(s);
  u_long off = 0;
  ioctlsocket(Sock(s), FIONBIO, &off);
  WSASetLastError(error);
  return error == 0;
}

int32_t SendBytes(SocketHandle s, std::span<const uint8_t> bytes) {
  const int n = send(Sock(s), reinterpret_cast<const char*>(bytes.data()), static_cast<int>(bytes.size()), 0);
  return n == SOCKET_ERROR ? -1 : n;
}

engine::Task<int32_t> WaitForSocket(engine::Loop& loop, SocketHandle s, int interest, int64_t deadline) {
  // In slices, with the socket's pending error looked at between them: Wine's select does not
  // wake for the port-unreachable answer to a datagram, which Windows and Linux report as a
  // failed receive, and only that error shows it (nor do some WSAPoll versions wake for a
  // refused connect).
  for (;;) {
    if (const int error = PendingError(s)) {
      WSASetLastError(error);
      co_return -1;
    }
    const int64_t slice_end = std::min(deadline, engine::NowMs() + kWaitSliceMs);
    if (co_await engine::Ready(loop, static_cast<int>(s), interest, slice_end)) co_return 1;
    if (engine::NowMs() >= deadline) co_return 0;
  }
}

int32_t ReceiveBytes(SocketHandle s, uint8_t* buffer, int32_t length, int32_t flags) {
  // Never blocks: the socket is non-blocking for this one call (Winsock has no per-call flag).
  u_long on = 1, off = 0;
  ioctlsocket(Sock(s), FIONBIO, &on);
  const int n = recv(Sock(s), reinterpret_cast<char*>(buffer), length < 0 ? 0 : length, flags);
  const int error = WSAGetLastError();
  ioctlsocket(Sock(s), FIONBIO, &off);
  WSASetLastError(error);
  return n == SOCKET_ERROR ? -1 : n;
}

void CloseSocket(SocketHandle s) { closesocket(Sock(s)); }

int32_t LastSocketError() { return WSAGetLastError(); }

bool NoDescriptorLeft() { return WSAGetLastError() == WSAEMFILE; }

}  // namespace vmio
