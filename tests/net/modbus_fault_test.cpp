// ModbusT against hostile peers. Each misbehaves on the first request and answers properly
// from then on: the fault must end in the client's documented outcome within the 5 s reply
// wait, and the next request on the same connection must get its own reply.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <iostream>
#include <thread>

#include "net/modbus_t.h"
#include "support/loopback_peer.h"
#include "support/raised.h"

namespace vmio {
namespace {

using test::Raised;
using Bytes = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;

long long MsSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// The proper answer to reading 8 coils: one status byte, 0xA5.
Bytes GoodReply(const Bytes& request) { return {request[0], request[1], 0, 0, 0, 4, 1, 1, 1, 0xA5}; }

struct FaultCase {
  const char* name;
  std::function<void(int fd, const Bytes& request)> misbehave;  // answers the first request
  std::string raised;                                           // "none": the first call succeeds
  long long max_ms;
};

void PrintTo(const FaultCase& fault, std::ostream* os) { *os << fault.name; }

const FaultCase kFaults[] = {
    {"Silent", [](int, const Bytes&) {}, "46003 Receive timed out", 5000 + 1000},
    {"Short",
     [](int fd, const Bytes& r) {
       test::SendAll(fd, Bytes{r[0], r[1], 0, 0, 0});
     },
     "46004 Invalid reply received", 500},
    // A proper reply with 3000 bytes of trailing junk: the one read takes the reply and the
    // first part of the junk, the rest waits on the socket.
    {"Oversize",
     [](int fd, const Bytes& r) {
       Bytes reply = GoodReply(r);
       reply.resize(reply.size() + 3000, 0xFF);
       test::SendAll(fd, reply);
     },
     "none", 500},
    {"Split",
     [](int fd, const Bytes& r) {
       test::SendAll(fd, Bytes{r[0], r[1], 0, 0, 0, 4, 1, 1});
       std::this_thread::sleep_for(std::chrono::milliseconds(300));
       test::SendAll(fd, Bytes{1, 0xA5});
     },
     "46004 Invalid reply received", 500},
    // The device refuses the function (exception 1, illegal function).
    {"WrongFunction",
     [](int fd, const Bytes& r) {
       test::SendAll(fd, Bytes{r[0], r[1], 0, 0, 0, 3, 1, 0x81, 1});
     },
     "46005 Modbus exception 1occured", 500},
};

class ModbusFaultTest : public ::testing::TestWithParam<FaultCase> {};

TEST_P(ModbusFaultTest, FailsWithinTheReplyWaitAndTheNextRequestGetsItsOwnReply) {
  const FaultCase& fault = GetParam();
  std::atomic<int> requests{0};
  std::atomic<bool> misbehaved{false};
  test::RawModbusPeer device([&](int fd, const Bytes& request) {
    if (requests++ == 0) {
      fault.misbehave(fd, request);
      misbehaved = true;
    } else {
      test::SendAll(fd, GoodReply(request));
    }
    return true;
  });
  ModbusT modbus;
  ASSERT_TRUE(modbus.Connect("127.0.0.1", device.Port()));

  const Clock::time_point start = Clock::now();
  EXPECT_EQ(Raised([&] { modbus.GetCoilData(0, 8); }), fault.raised);
  const long long ms = MsSince(start);
  EXPECT_LT(ms, fault.max_ms);
  std::cout << "[ duration ] " << fault.name << ": " << ms << " ms\n";

  // Once the peer has finished misbehaving, whatever it left on the socket must not answer
  // the next request.
  for (int i = 0; i < 200 && !misbehaved; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  for (int i = 0; i < 3; ++i) EXPECT_EQ(modbus.GetCoilData(0, 8), Bytes{0xA5});
  EXPECT_EQ(device.Connections(), 1);
}

INSTANTIATE_TEST_SUITE_P(Peers, ModbusFaultTest, ::testing::ValuesIn(kFaults),
                         [](const auto& info) { return std::string(info.param.name); });

// A connect that is never answered (a peer dropping SYNs: here a listener whose backlog is
// full) gives up after 5 s instead of the system's minutes.
TEST(ModbusFaultTest, AConnectNeverAnsweredFailsAfterFiveSecondsAndALaterOneSucceeds) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof a;
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&a), len), 0);
  ASSERT_EQ(listen(listener, 0), 0);
  ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&a), &len), 0);

  // Fill the backlog: connect until one is left hanging.
  std::vector<int> fillers;
  for (bool hanging = false; !hanging && fillers.size() < 16;) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    fillers.push_back(fd);
    connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
    pollfd p{fd, POLLOUT, 0};
    hanging = poll(&p, 1, 300) == 0;
  }

  ModbusT modbus;
  const Clock::time_point start = Clock::now();
  EXPECT_EQ(Raised([&] { modbus.Connect("127.0.0.1", ntohs(a.sin_port)); }), "46001 Failed to connect to device");
  const long long ms = MsSince(start);
  EXPECT_GE(ms, 4900);
  EXPECT_LT(ms, 6000);
  std::cout << "[ duration ] SynDropped: " << ms << " ms\n";

  // The peer catches up: the hanging attempts go, the queued connections are taken.
  for (const int fd : fillers) close(fd);
  for (pollfd p{listener, POLLIN, 0}; poll(&p, 1, 100) == 1;) close(accept(listener, nullptr, nullptr));
  EXPECT_TRUE(modbus.Connect("127.0.0.1", ntohs(a.sin_port)));
  close(listener);
}

}  // namespace
}  // namespace vmio
