#include "net/socket.h"

#include <algorithm>
#include <climits>
#include <cmath>

#include "engine/io.h"

namespace vmio {
namespace {

// The wait in whole seconds; the default rounding mode takes halves to the even neighbour.
// Anything a wait would refuse (negative, not a number) becomes -1, a failed wait.
int32_t WholeSeconds(float timeout) {
  if (!(timeout >= 0)) return -1;
  const double rounded = std::nearbyint(static_cast<double>(timeout));
  return rounded >= INT_MAX ? INT_MAX : static_cast<int32_t>(rounded);
}

}  // namespace

engine::Task<bool> ConnectIPv4On(engine::Loop& loop, SocketHandle s, std::string dottedAddress, uint16_t port,
                                 int32_t timeoutMs) {
  const int64_t deadline = engine::NowMs() + std::max(timeoutMs, 0);
  const int32_t begun = BeginConnectIPv4(s, dottedAddress, port);
  int32_t waited = begun;
  if (begun == 0) waited = co_await WaitForSocket(loop, s, engine::kWritable, deadline);
  co_return EndConnect(s, waited);
}

bool ConnectIPv4(SocketHandle s, const std::string& dottedAddress, uint16_t port, int32_t timeoutMs) {
  return engine::RunBlocking(
      [&](engine::Io& io) { return ConnectIPv4On(io.loop(), s, dottedAddress, port, timeoutMs); });
}

engine::Task<int32_t> RecvTimeoutOn(engine::Loop& loop, SocketHandle Socket, uint8_t* Buffer, int32_t Length,
                                    int32_t Flags, float Timeout) {
  const int32_t seconds = WholeSeconds(Timeout);
  // A wait that cannot be made (no socket, a bad time-out) leaves the verdict to the recv.
  if (Socket != kNoSocket && seconds >= 0) {
    const int64_t deadline = engine::NowMs() + int64_t{seconds} * 1000;
    if (co_await WaitForSocket(loop, Socket, engine::kReadable, deadline) == 0) co_return -2;
  }
  co_return ReceiveBytes(Socket, Buffer, Length, Flags);
}

int32_t RecvTimeout(SocketHandle Socket, uint8_t* Buffer, int32_t Length, int32_t Flags, float Timeout) {
  return engine::RunBlocking(
      [&](engine::Io& io) { return RecvTimeoutOn(io.loop(), Socket, Buffer, Length, Flags, Timeout); });
}

}  // namespace vmio
