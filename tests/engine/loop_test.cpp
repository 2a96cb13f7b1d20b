#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <string>
#include <vector>

#include "engine/loop.h"
#include "engine/task.h"
#include "engine/waits.h"

namespace vmio::engine {
namespace {

// Both ends of a local stream, closed at the end of the test.
struct Pair {
  Pair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, fds.data()), 0); }
  ~Pair() {
    close(fds[0]);
    close(fds[1]);
  }
  void Write() const { ASSERT_EQ(write(fds[1], "x", 1), 1); }
  std::array<int, 2> fds{};
};

Task<int> Twice(int n) { co_return 2 * n; }

Task<int> Sum(int n) {
  const int a = co_await Twice(n);
  const int b = co_await Twice(a);
  co_return a + b;
}

Task<int> Fails() {
  co_await Twice(1);
  throw std::runtime_error("device gone");
}

Task<bool> WaitFor(Loop& loop, int fd, int64_t ms) { co_return co_await Ready(loop, fd, kReadable, NowMs() + ms); }

Task<std::string> ReadLine(Loop& loop, int fd) {
  std::string line;
  for (;;) {
    if (!co_await Ready(loop, fd, kReadable, NowMs() + 2000)) throw std::runtime_error("timed out");
    char c = 0;
    if (read(fd, &c, 1) != 1) continue;  // a spurious wake-up
    if (c == '\n') co_return line;
    line += c;
  }
}

TEST(EngineTask, ChainsResultsAndCarriesExceptionsToTheAwaiter) {
  Loop loop;
  EXPECT_EQ(RunToCompletion(loop, Sum(3)), 6 + 12);
  try {
    RunToCompletion(loop, Fails());
    ADD_FAILURE() << "no exception";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "device gone");
  }
}

TEST(EngineTask, WaitsEndByReadinessOrDeadlineAndADestroyedTaskLeavesNothingBehind) {
  Loop loop;
  Pair pair;
  pair.Write();
  EXPECT_TRUE(RunToCompletion(loop, WaitFor(loop, pair.fds[0], 1000)));
  char c;
  ASSERT_EQ(read(pair.fds[0], &c, 1), 1);
  EXPECT_FALSE(RunToCompletion(loop, WaitFor(loop, pair.fds[0], 20)));
  EXPECT_EQ(loop.Watches(), 0u);
  EXPECT_EQ(loop.Timers(), 0u);

  // Cancelled mid-wait: the descriptor and the deadline leave the loop with the frame.
  {
    Task<std::string> reading = ReadLine(loop, pair.fds[0]);
    reading.Start([] { ADD_FAILURE() << "a cancelled task ended"; });
    EXPECT_EQ(loop.Watches(), 1u);
    EXPECT_EQ(loop.Timers(), 1u);
  }
  EXPECT_EQ(loop.Watches(), 0u);
  EXPECT_EQ(loop.Timers(), 0u);
  pair.Write();
  EXPECT_TRUE(loop.RunOnce(0) == false);  // nothing left to wait for
}

TEST(EngineLoop, TimersRunInDueOrderOnceAndOnlyWhenDue) {
  Loop loop;
  std::vector<int> order;
  const int64_t now = NowMs();
  loop.AddTimer(now + 30, [&] { order.push_back(3); });
  const Loop::TimerId cancelled = loop.AddTimer(now + 10, [&] { order.push_back(99); });
  loop.AddTimer(now, [&] { order.push_back(1); });
  loop.AddTimer(now + 20, [&] { order.push_back(2); });
  loop.CancelTimer(cancelled);
  loop.RunDueTimers();
  EXPECT_EQ(order, std::vector<int>{1});
  while (loop.RunOnce(-1)) {
  }
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));

  // A timer that adds itself again for now runs once per turn, never starving the loop.
  int runs = 0;
  std::function<void()> again = [&] {
    ++runs;
    loop.AddTimer(NowMs(), again);
  };
  loop.AddTimer(NowMs(), again);
  loop.RunDueTimers();
  loop.RunDueTimers();
  EXPECT_EQ(runs, 2);
}

TEST(EngineLoop, OneThreadWaitsOnAThousandDescriptorsAndAHostLoopCanDriveIt) {
  Loop loop;
  std::vector<Pair> pairs(1000);
  std::vector<Task<std::string>> readers;
  int done = 0;
  for (Pair& p : pairs) {
    readers.push_back(ReadLine(loop, p.fds[0]));
    readers.back().Start([&done] { ++done; });
  }
  EXPECT_EQ(loop.Watches(), 1000u);
  for (size_t i = 0; i < pairs.size(); i += 2) ASSERT_EQ(write(pairs[i].fds[1], "ok\n", 3), 3);

  // The host's own poll over what the loop asks to watch, as an epoll or GLib host would.
  const int64_t deadline = NowMs() + 5000;
  while (done < 500 && NowMs() < deadline) {
    std::vector<pollfd> polled;
    for (const auto& [fd, interest] : loop.WatchedDescriptors())
      polled.push_back({fd, static_cast<short>(interest & kReadable ? POLLIN : POLLOUT), 0});
    ASSERT_GT(poll(polled.data(), polled.size(), static_cast<int>(loop.MillisecondsUntilNextTimer())), 0);
    for (const pollfd& p : polled) {
      if (p.revents) loop.Dispatch(p.fd, kReadable);
    }
    loop.RunDueTimers();
  }
  EXPECT_EQ(done, 500);
  for (size_t i = 0; i < readers.size(); i += 2) EXPECT_EQ(readers[i].Result(), "ok");
  EXPECT_EQ(loop.Watches(), 500u) << "the silent half still waits";
  readers.clear();
  EXPECT_EQ(loop.Watches(), 0u);
  EXPECT_EQ(loop.Timers(), 0u);
}

}  // namespace
}  // namespace vmio::engine
