#include "net/socket.h"

#include <climits>
#include <cmath>

namespace vmio {
namespace {

// The wait in whole seconds; the default rounding mode takes halves to the even neighbour.
// Anything select would refuse (negative, not a number) becomes -1, a failed wait.
int32_t WholeSeconds(float timeout) {
  if (!(timeout >= 0)) return -1;
  const double rounded = std::nearbyint(static_cast<double>(timeout));
  return rounded >= INT_MAX ? INT_MAX : static_cast<int32_t>(rounded);
}

}  // namespace

int32_t RecvTimeout(SocketHandle Socket, uint8_t* Buffer, int32_t Length, int32_t Flags, float Timeout) {
  if (SelectReadable(Socket, WholeSeconds(Timeout)) == 0) return -2;
  return ReceiveBytes(Socket, Buffer, Length, Flags);
}

}  // namespace vmio
