#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <numeric>
#include <thread>

#include "net/lists.h"
#include "net/socket.h"
#include "support/loopback_peer.h"
#include "support/raised.h"

namespace vmio {
namespace {

using test::Raised;
using Clock = std::chrono::steady_clock;

std::vector<uint8_t> Iota(size_t n) {
  std::vector<uint8_t> v(n);
  std::iota(v.begin(), v.end(), uint8_t{0});
  return v;
}

TEST(SubArray, TakesARunClampedToTheEnd) {
  const std::vector<uint8_t> ten = Iota(10);
  EXPECT_EQ(SubArray(ten, 8, 5), (std::vector<uint8_t>{8, 9}));
  EXPECT_EQ(SubArray(ten, 3, 2), (std::vector<uint8_t>{3, 4}));
  EXPECT_EQ(SubArray(ten, 7, -1), (std::vector<uint8_t>{7, 8, 9}));
  EXPECT_EQ(SubArray(ten, 0, -1), ten);
  EXPECT_TRUE(SubArray(ten, 4, 0).empty());
  EXPECT_TRUE(SubArray(ten, 10, -1).empty());  // right at the end: nothing left, no error
  EXPECT_TRUE(SubArray({}, 0, -1).empty());
}

TEST(SubArray, StartOutsideTheArrayRaisesSubscriptOutOfRange) {
  const std::vector<uint8_t> ten = Iota(10);
  const std::string outOfRange = "9 Subscript out of range";
  EXPECT_EQ(Raised([&] { SubArray(ten, 11, 1); }), outOfRange);
  EXPECT_EQ(Raised([&] { SubArray(ten, 11, 0); }), outOfRange);  // even for nothing
  EXPECT_EQ(Raised([&] { SubArray(ten, -1, 2); }), outOfRange);
  EXPECT_EQ(Raised([&] { SubArray(ten, 0, -2); }), outOfRange);
}

// A connected loopback pair: our handle on one end, the peer's descriptor on the other.
struct Pair {
  test::Listener listener;
  SocketHandle ours = OpenSocket(SocketKind::Tcp);
  int theirs = -1;
  Pair() {
    EXPECT_TRUE(ConnectIPv4(ours, "127.0.0.1", listener.Port(), 1000));
    theirs = listener.Accept();
  }
  ~Pair() {
    CloseSocket(ours);
    if (theirs >= 0) close(theirs);
  }
};

double SecondsOf(const std::function<void()>& f) {
  const auto start = Clock::now();
  f();
  return std::chrono::duration<double>(Clock::now() - start).count();
}

TEST(RecvTimeout, WaitsWholeSecondsRoundingHalvesToEven) {
  Pair pair;
  uint8_t buffer[16];
  int32_t result = 0;
  // 0.4 and 0.5 both round to 0 seconds: the wait only polls.
  EXPECT_LT(SecondsOf([&] { result = RecvTimeout(pair.ours, buffer, 16, 0, 0.4f); }), 0.3);
  EXPECT_EQ(result, -2);
  EXPECT_LT(SecondsOf([&] { result = RecvTimeout(pair.ours, buffer, 16, 0, 0.5f); }), 0.3);
  EXPECT_EQ(result, -2);
  // 1.4 waits one whole second.
  const double waited = SecondsOf([&] { result = RecvTimeout(pair.ours, buffer, 16, 0, 1.4f); });
  EXPECT_EQ(result, -2);
  EXPECT_GE(waited, 0.95);
  EXPECT_LT(waited, 1.8);

  // Signals arriving every 100 ms (a host's interval timer, say) do not restart the wait.
  struct sigaction ignore {
  }, before{};
  ignore.sa_handler = [](int) {};
  sigaction(SIGUSR1, &ignore, &before);
  std::atomic<bool> done = false;
  const pthread_t waiter = pthread_self();
  std::thread interrupter([&] {
    for (int i = 0; i < 40; ++i) {  // 4 s at most
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      if (done) break;
      pthread_kill(waiter, SIGUSR1);
    }
  });
  const double interrupted = SecondsOf([&] { result = RecvTimeout(pair.ours, buffer, 16, 0, 1.0f); });
  done = true;
  interrupter.join();
  sigaction(SIGUSR1, &before, nullptr);
  EXPECT_EQ(result, -2);
  EXPECT_GE(interrupted, 0.95);
  EXPECT_LT(interrupted, 1.8);
}

TEST(RecvTimeout, ReturnsWhatOneRecvGivesAndZeroForAClosedPeer) {
  Pair pair;
  uint8_t buffer[16] = {};
  const std::vector<uint8_t> abc{'a', 'b', 'c'};
  test::SendAll(pair.theirs, abc);
  // Data already waiting is read even by a zero-second wait.
  EXPECT_EQ(RecvTimeout(pair.ours, buffer, 16, 0, 0.4f), 3);
  EXPECT_EQ(std::vector<uint8_t>(buffer, buffer + 3), abc);

  test::SendAll(pair.theirs, abc);
  EXPECT_EQ(RecvTimeout(pair.ours, buffer, 2, 0, 5.0f), 2);  // at most Length
  EXPECT_EQ(RecvTimeout(pair.ours, buffer, 16, 0, 5.0f), 1);

  close(pair.theirs);
  pair.theirs = -1;
  EXPECT_EQ(RecvTimeout(pair.ours, buffer, 16, 0, 5.0f), 0);
}

TEST(RecvTimeout, RecvFailureIsMinusOne) {
  const SocketHandle unconnected = OpenSocket(SocketKind::Tcp);
  uint8_t buffer[4];
  EXPECT_EQ(RecvTimeout(unconnected, buffer, 4, 0, 5.0f), -1);
  CloseSocket(unconnected);
  EXPECT_EQ(RecvTimeout(kNoSocket, buffer, 4, 0, 5.0f), -1);
}

}  // namespace
}  // namespace vmio
