// HTTPClient against hostile peers: each misbehaves on its first connection and behaves from
// then on. Every fault must end in the client's documented error within its time-out, and the
// next request on the same client must succeed.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <iostream>
#include <string>
#include <thread>

#include "http/http_client.h"
#include "raw_peer.h"
#include "support/raised.h"

namespace vmio {
namespace {

using test::Raised;
using test::RawPeer;
using Clock = std::chrono::steady_clock;

constexpr int32_t kReceiveTimeoutMs = 1000;  // set on the client to keep silent peers short
const std::string kNoResponse = "13104 Failed to connect to the HTTP server.";
const std::string kBodyBroken = "13106 Disconnected while recieving data";

// Sends until the client goes away (or the peer stops); false once a send failed.
bool SendWhileHeard(RawPeer& p, int fd, const std::string& text) {
  return !p.Stopping() && ::send(fd, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}

// Ends the connection with a reset rather than an orderly close.
void Reset(int fd) {
  const linger abort{1, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
}

struct FaultCase {
  const char* name;
  std::function<void(RawPeer&, int)> misbehave;  // the first connection's script
  std::string raised;
  long long max_ms;  // the documented time-out plus a margin
};

void PrintTo(const FaultCase& fault, std::ostream* os) { *os << fault.name; }

void Behave(RawPeer& p, int fd) {
  while (!p.ReadRequest(fd).empty()) RawPeer::Send(fd, "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
}

const FaultCase kFaults[] = {
    {"Silent", [](RawPeer& p, int fd) { p.WaitForHangUp(fd); }, kNoResponse, kReceiveTimeoutMs + 500},
    {"ResetMidHeader",
     [](RawPeer& p, int fd) {
       p.ReadRequest(fd);
       RawPeer::Send(fd, "HTTP/1.1 200 OK\r\nContent-Le");
       Reset(fd);
     },
     kNoResponse, 500},
    {"ResetMidBody",
     [](RawPeer& p, int fd) {
       p.ReadRequest(fd);
       RawPeer::Send(fd, "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nhalf");
       std::this_thread::sleep_for(std::chrono::milliseconds(50));
       Reset(fd);
     },
     kBodyBroken, 500},
    // One byte every 250 ms never trips the inactivity time-out; the 30 s request limit ends it.
    {"DripBody",
     [](RawPeer& p, int fd) {
       p.ReadRequest(fd);
       RawPeer::Send(fd, "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n");
       while (SendWhileHeard(p, fd, "x")) std::this_thread::sleep_for(std::chrono::milliseconds(250));
     },
     kBodyBroken, 30000 + 1500},
    {"OversizeBody",
     [](RawPeer& p, int fd) {
       p.ReadRequest(fd);
       const std::string block(1 << 16, 'x');
       if (SendWhileHeard(p, fd, "HTTP/1.1 200 OK\r\nContent-Length: 200000000\r\n\r\n")) {
         while (SendWhileHeard(p, fd, block)) {
         }
       }
     },
     kBodyBroken, 5000},
    {"EndlessChunked",
     [](RawPeer& p, int fd) {
       p.ReadRequest(fd);
       const std::string chunk = "10000\r\n" + std::string(0x10000, 'y') + "\r\n";
       if (SendWhileHeard(p, fd, "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n")) {
         while (SendWhileHeard(p, fd, chunk)) {
         }
       }
     },
     kBodyBroken, 5000},
    // A device answering garbage failed the request; the session itself is fine.
    {"GarbageStatusLine",
     [](RawPeer& p, int fd) {
       p.ReadRequest(fd);
       RawPeer::Send(fd, "\x16\x03garbage\r\n\r\n");
     },
     kNoResponse, 500},
};

class HttpFaultTest : public ::testing::TestWithParam<FaultCase> {};

TEST_P(HttpFaultTest, FailsWithinItsTimeOutAndTheNextRequestRecovers) {
  const FaultCase& fault = GetParam();
  std::atomic<int> connections{0};
  RawPeer peer([&](RawPeer& p, int fd) {
    if (connections++ == 0) {
      fault.misbehave(p, fd);
    } else {
      Behave(p, fd);
    }
  });
  HTTPClient client;
  client.Timeout(kReceiveTimeoutMs);

  const Clock::time_point start = Clock::now();
  EXPECT_EQ(Raised([&] { client.GetResource(peer.Url("/io")); }), fault.raised);
  const long long ms = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
  EXPECT_LT(ms, fault.max_ms);
  std::cout << "[ duration ] " << fault.name << ": " << ms << " ms\n";

  const std::vector<uint8_t> body = client.GetResource(peer.Url("/io"));
  EXPECT_EQ(std::string(body.begin(), body.end()), "ok");
  EXPECT_EQ(client.GetResultCode(), "200");
}

INSTANTIATE_TEST_SUITE_P(Peers, HttpFaultTest, ::testing::ValuesIn(kFaults),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace vmio
