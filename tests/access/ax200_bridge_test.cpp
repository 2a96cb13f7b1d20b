// The AX200 service client against a raw peer on a loopback TCP port, for what the simulated
// service never sends: events before replies, nonsense, endless lines.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "access/access_bridge.h"
#include "support/loopback_peer.h"

namespace vmio {
namespace {

using namespace std::chrono_literals;

struct Recorder : AccessEvents {
  void DoorStatus() override { events.push_back("doorStatus"); }
  void Disconnected() override { events.push_back("Disconnected"); }
  std::vector<std::string> events;
};

// Answers each request line it reads with the next scripted text, on its own thread, and
// keeps the lines it read.
class ScriptedPeer {
 public:
  explicit ScriptedPeer(std::vector<std::string> answers) : answers_(std::move(answers)) {
    setenv("VMIO_AX200", ("tcp:127.0.0.1:" + std::to_string(listener_.Port())).c_str(), 1);
    thread_ = std::thread([this] { Serve(); });
  }
  ~ScriptedPeer() {
    if (thread_.joinable()) thread_.join();
    unsetenv("VMIO_AX200");
  }
  // The request lines, once the script has run.
  std::vector<std::string> Requests() {
    if (thread_.joinable()) thread_.join();
    return requests_;
  }

 private:
  void Serve() {
    const int fd = listener_.Accept();
    if (fd < 0) return;
    std::string pending;
    for (const std::string& answer : answers_) {
      size_t lf;
      while ((lf = pending.find('\n')) == std::string::npos) {
        pollfd p{fd, POLLIN, 0};
        char buf[512];
        const ssize_t n = poll(&p, 1, 3000) == 1 ? recv(fd, buf, sizeof buf, 0) : 0;
        if (n <= 0) {
          close(fd);
          return;
        }
        pending.append(buf, static_cast<size_t>(n));
      }
      requests_.push_back(pending.substr(0, lf));
      pending.erase(0, lf + 1);
      test::SendAll(fd, {reinterpret_cast<const uint8_t*>(answer.data()), answer.size()});
    }
    close(fd);
  }

  test::Listener listener_;
  std::vector<std::string> answers_;
  std::vector<std::string> requests_;
  std::thread thread_;
};

TEST(Ax200Bridge, EventsBeforeAReplyAreHandledAndFieldsCannotBreakLines) {
  ScriptedPeer peer({"EVENT\tdoorStatus\tDeadlock\r\nEVENT\tnewThing\r\nPRESENT\t1\r\n", "EVENT\tdoorStatus\tNormal\n",
                     "DOORS\t1\t2\nDOOR\t5\tHall\nEVENT\tDisconnected\nDOOR\t-7\tYard\n"});
  Recorder events;
  const auto bridge = CreateAccessBridge(events);
  EXPECT_TRUE(bridge->Attach("a\tb\r\nc"));
  // A status answer with no request outstanding answers nothing: it is dropped.
  EXPECT_EQ(bridge->Status(), "");
  EXPECT_TRUE(events.events.empty());
  bridge->RequestStatus("5");
  bridge->WaitForEvents(WaitClock::now() + 2s);
  EXPECT_EQ(bridge->Status(), "Normal");
  const AccessDoorList list = bridge->Doors("Y", "");
  ASSERT_TRUE(list.valid);
  ASSERT_EQ(list.doors.size(), 2u);
  EXPECT_EQ(list.doors[1].id, -7);
  EXPECT_EQ(list.doors[1].name, "Yard");
  EXPECT_EQ(bridge->Status(), "");
  EXPECT_EQ(events.events, (std::vector<std::string>{"doorStatus", "Disconnected"}));
  EXPECT_EQ(peer.Requests(), (std::vector<std::string>{"HELLO\ta b  c", "STATUS\t5", "DOORS\tY\t"}));
}

TEST(Ax200Bridge, NonsenseWhereAReplyIsAwaitedCountsAsDisconnected) {
  const std::pair<std::string, std::string> cases[] = {
      {"doors", "DOORS\t1\t2\nDOOR\t5\tHall\nDOOR\tx\tYard\n"},
      {"count", "DOORS\t1\t99999999\n"},
      {"endless", std::string(5000, 'x')},
      {"closed", "DOORS\t1\t3\nDOOR\t5\tHall\n"},
  };
  for (const auto& [name, reply] : cases) {
    // Except where closing is the point, the peer stays on, waiting for a request that never
    // comes: the client must see the nonsense itself.
    std::vector<std::string> script = {"PRESENT\t1\n", reply};
    if (name != "closed") script.emplace_back();
    ScriptedPeer peer(script);
    Recorder events;
    const auto bridge = CreateAccessBridge(events);
    ASSERT_TRUE(bridge->Attach("site")) << name;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(bridge->Doors("Y", "").valid) << name;
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s) << name;
    EXPECT_EQ(events.events, std::vector<std::string>{"Disconnected"}) << name;
    // A status request to a service that has gone is answered at once.
    bridge->RequestStatus("5");
    EXPECT_EQ(events.events.size(), 2u) << name;
  }
}

TEST(Ax200Bridge, AServiceThatNeverStopsTalkingCannotHoldAReplyWaitOrItsMemory) {
  test::Listener listener;
  setenv("VMIO_AX200", ("tcp:127.0.0.1:" + std::to_string(listener.Port())).c_str(), 1);
  std::thread talker([&] {
    const int fd = listener.Accept();
    if (fd < 0) return;
    // Answers the greeting only once it came: sent earlier, the answer would be stale input
    // the client drops before it asks.
    for (char c = 0; c != '\n' && ::recv(fd, &c, 1, 0) == 1;) {
    }
    const std::string present = "PRESENT\t1\n";
    test::SendAll(fd, {reinterpret_cast<const uint8_t*>(present.data()), present.size()});
    std::string noise;
    for (int i = 0; i < 256; ++i) noise += "EVENT\tnoise\n";
    // Events without end, until the client hangs up (or 10 s, so the test ends by itself).
    const auto stop = std::chrono::steady_clock::now() + 10s;
    while (std::chrono::steady_clock::now() < stop && ::send(fd, noise.data(), noise.size(), MSG_NOSIGNAL) > 0) {
    }
    close(fd);
  });
  Recorder events;
  const auto bridge = CreateAccessBridge(events);
  ASSERT_TRUE(bridge->Attach("site"));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(bridge->Doors("Y", "").valid);
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_GE(took, 1900ms);
  EXPECT_LT(took, 2600ms);
  talker.join();
  unsetenv("VMIO_AX200");
}

TEST(Ax200Bridge, AServiceThatIsNotThereIsAbsentWithoutWaiting) {
  Recorder events;
  const auto bridge = CreateAccessBridge(events);
  for (const char* where : {"bogus:somewhere", "unix:/nonexistent/ax200.sock", "tcp:127.0.0.1:1"}) {
    setenv("VMIO_AX200", where, 1);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(bridge->Attach("site")) << where;
    EXPECT_FALSE(bridge->Sensors()) << where;
    EXPECT_LT(std::chrono::steady_clock::now() - start, 500ms) << where;
  }
  unsetenv("VMIO_AX200");
  EXPECT_TRUE(events.events.empty());
}

}  // namespace
}  // namespace vmio
