// AxxessIDDoor against the simulated AX200 service over its real socket.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "ax200_sim.h"
#include "core/pumping_wait.h"
#include "devices/axxessid/axxessid_door.h"
#include "net/local_addresses.h"
#include "support/ax200_site.h"
#include "support/counting_target.h"
#include "support/raised.h"
#include "support/test_clock.h"
#include "vmio/events.h"

namespace vmio {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using test::Ax200Site;
using test::Raised;

const std::string kNotRunning = "45005 The AX200 software is not running";
const std::string kTimedOut = "45005 Timed out getting door status";

std::string Read(AxxessIDDoor& door, int32_t index) {
  const Variant v = door.PortValue(index);
  return v.IsEmpty() ? "(empty)" : v.AsString();
}

TEST(AxxessIDDoor, ConnectHandsOverTheDeviceThenThisComputersAddressThenAsksForTheDoors) {
  Ax200Site site;
  AxxessIDDoor door;
  door.Connect("site\tone");
  std::vector<std::string> addresses;
  GetLocalIPs(addresses);
  const std::vector<std::string> expected = {"HELLO\tsite one", "ADDRESS\t" + (addresses.empty() ? "" : addresses[0]),
                                             "DOORS\tY\t"};
  EXPECT_EQ(site.sim.Requests(), expected);
  ASSERT_EQ(door.Ports(), 2);
  EXPECT_EQ(door.PortName(0), "Front door");
  EXPECT_EQ(door.PortName(1), "Server room");
  EXPECT_EQ(door.PortDirection(1), IOBidirectional);
  EXPECT_EQ(door.PortType(1), vtString);
}

TEST(AxxessIDDoor, SoftwareAbsentFailsConnectAfterHandingOverTheAddress) {
  Ax200Site site;
  site.sim.SetPresent(false);
  AxxessIDDoor door;
  EXPECT_EQ(Raised([&] { door.Connect("site"); }), "45001 The AX200 software is not found");
  const std::vector<std::string> requests = site.sim.Requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_TRUE(requests[1].starts_with("ADDRESS\t"));
  EXPECT_EQ(Raised([&] { door.Ports(); }), "45003 Not connected");

  // A NUL would cut the device string on its way: such a string finds no software.
  site.sim.SetPresent(true);
  EXPECT_EQ(Raised([&] { door.Connect(std::string("site\0x", 6)); }), "45001 The AX200 software is not found");
  EXPECT_EQ(site.sim.LastDevice(), "site") << "the first Connect's, not one cut at the NUL";
  site.sim.SetPresent(false);

  // Nothing listening, or a service that never answers, is absent too.
  setenv("VMIO_AX200", "unix:/nonexistent/ax200.sock", 1);
  EXPECT_EQ(Raised([&] { door.Connect("site"); }), "45001 The AX200 software is not found");
  setenv("VMIO_AX200", site.sim.Address().c_str(), 1);
  site.sim.SetPresent(true);
  site.sim.SetSilent(true);
  const auto start = Clock::now();
  EXPECT_EQ(Raised([&] { door.Connect("site"); }), "45001 The AX200 software is not found");
  EXPECT_LT(Clock::now() - start, 2600ms);
}

TEST(AxxessIDDoor, AnInvalidDoorListGivesAConnectedDriverWithNoPorts) {
  Ax200Site site;
  site.sim.SetDoorListValid(false);
  AxxessIDDoor door;
  door.Connect("site");
  EXPECT_EQ(door.Ports(), 0);
  EXPECT_EQ(Raised([&] { door.PortName(0); }), "9 Subscript out of range");
}

TEST(AxxessIDDoor, ModesReadAsTheirPortValues) {
  Ax200Site site;
  AxxessIDDoor door;
  door.Connect("site");
  const std::pair<std::string, std::string> cases[] = {{"DoorUnlock", "Unlocked"}, {"Normal", "Normal"},
                                                       {"HighSecurity", "Secure"}, {"Deadlock", "Locked"},
                                                       {"Maintenance", "(empty)"}, {"deadlock", "(empty)"}};
  for (const auto& [mode, value] : cases) {
    site.sim.SetDoorMode(2, mode);
    EXPECT_EQ(Read(door, 1), value) << mode;
  }
  EXPECT_EQ(site.sim.Requests().back(), "STATUS\t2");
  site.sim.SetDoorMode(2, "");
  EXPECT_EQ(Raised([&] { door.PortValue(1); }), kNotRunning);
}

TEST(AxxessIDDoor, TheFiveCommandsSetTheModeAndOtherValuesSendNothing) {
  Ax200Site site;
  AxxessIDDoor door;
  door.Connect("site");
  const std::pair<std::string, std::string> cases[] = {
      {"Locked", "Deadlock"}, {"Unlocked", "DoorUnlock"}, {"Secure", "HighSecurity"}, {"Normal", "Normal"}};
  for (const auto& [value, mode] : cases) {
    door.PortValue(0, Variant(value));
    EXPECT_EQ(Read(door, 0), value);  // the read follows the command on the same connection
    EXPECT_EQ(site.sim.DoorMode(1), mode);
  }
  site.sim.ClearRequests();
  door.PortValue(0, Variant("Open"));
  for (const Variant& ignored : {Variant("open"), Variant("LOCKED"), Variant(" Locked"), Variant(true), Variant(3)}) {
    door.PortValue(0, ignored);
  }
  EXPECT_EQ(Read(door, 0), "Normal");
  EXPECT_EQ(site.sim.Requests(), (std::vector<std::string>{"COMMAND\tOPEN\t1", "STATUS\t1"}));
}

TEST(AxxessIDDoor, IndexChecksNeedNoConnectionButValuesDo) {
  Ax200Site site;
  AxxessIDDoor door;
  EXPECT_EQ(Raised([&] { door.Ports(); }), "45003 Not connected");
  EXPECT_EQ(Raised([&] { door.PortDirection(0); }), "9 Subscript out of range");
  EXPECT_EQ(Raised([&] { door.PortValue(0); }), "45003 Not connected");
  door.Connect("site");
  for (const int32_t bad : {-1, 2}) {
    EXPECT_EQ(Raised([&] { door.PortName(bad); }), "9 Subscript out of range");
    EXPECT_EQ(Raised([&] { door.PortType(bad); }), "9 Subscript out of range");
    EXPECT_EQ(Raised([&] { door.PortValue(bad); }), "9 Subscript out of range");
    EXPECT_EQ(Raised([&] { door.PortValue(bad, Variant("Open")); }), "9 Subscript out of range");
  }
  door.Disconnect();
  EXPECT_EQ(door.PortName(1), "Server room");
  EXPECT_EQ(Raised([&] { door.Ports(); }), "45003 Not connected");
  EXPECT_EQ(Raised([&] { door.PortValue(0, Variant("Open")); }), "45003 Not connected");
}

TEST(AxxessIDDoor, AReadWaitsJustOverTwoSecondsForTheStatus) {
  Ax200Site site;
  AxxessIDDoor door;
  door.Connect("site");
  site.sim.SetStatusAnswer(sim::StatusAnswer::kLate, 1500);
  EXPECT_EQ(Read(door, 0), "Normal");  // late on the system clock: the simulator's delay is real
  site.sim.SetStatusAnswer(sim::StatusAnswer::kNever);
  test::TestClock clock;
  const auto waited = clock.Timed([&] { EXPECT_EQ(Raised([&] { door.PortValue(0); }), kTimedOut); });
  EXPECT_GE(waited, 2000ms);
  EXPECT_LT(waited, 2300ms);
}

TEST(AxxessIDDoor, AnAnswerThatCameTooLateIsNeverTakenForALaterRead) {
  Ax200Site site;
  AxxessIDDoor door;
  door.Connect("site");
  site.sim.SetStatusAnswer(sim::StatusAnswer::kLate, 2500);
  EXPECT_EQ(Raised([&] { door.PortValue(1); }), kTimedOut);
  // Door 2's answer ("HighSecurity") comes while this read of door 1 waits.
  EXPECT_EQ(Raised([&] { door.PortValue(0); }), kTimedOut);
  // Door 1's answer ("Normal") arrives between reads, before the next request is made.
  PumpingWait(kNoWaitHandle, WaitClock::now() + 800ms);
  site.sim.SetStatusAnswer(sim::StatusAnswer::kNow);
  EXPECT_EQ(Read(door, 1), "Secure");
  EXPECT_EQ(Read(door, 0), "Normal");
  EXPECT_EQ(Read(door, 1), "Secure");
}

TEST(AxxessIDDoor, DisconnectedEndsTheWaitAtOnce) {
  Ax200Site site;
  AxxessIDDoor door;
  door.Connect("site");
  site.sim.SetStatusAnswer(sim::StatusAnswer::kNever);
  for (const bool close : {false, true}) {
    std::jthread service([&] {
      std::this_thread::sleep_for(200ms);
      if (close) {
        site.sim.CloseConnections();
      } else {
        site.sim.SendDisconnected();
      }
    });
    const auto start = Clock::now();
    EXPECT_EQ(Raised([&] { door.PortValue(0); }), kNotRunning) << close;
    EXPECT_LT(Clock::now() - start, 1000ms) << close;
  }
  // Gone stays gone, without a wait, until Connect attaches again.
  const auto start = Clock::now();
  EXPECT_EQ(Raised([&] { door.PortValue(0); }), kNotRunning);
  EXPECT_LT(Clock::now() - start, 100ms);
  site.sim.SetStatusAnswer(sim::StatusAnswer::kNow);
  door.Connect("site");
  EXPECT_EQ(Read(door, 0), "Normal");
}

TEST(AxxessIDDoor, TimersRunWhileAReadWaitsAndOneThatReadsTheDoorIsRefused) {
  Ax200Site site;
  AxxessIDDoor door;
  door.Connect("site");
  site.sim.SetStatusAnswer(sim::StatusAnswer::kLate, 500);
  const auto tick = std::make_shared<test::CountingTarget>();
  std::string inner = "not called";
  tick->also = [&] {
    if (tick->calls == 1) inner = Raised([&] { door.PortValue(1); });
  };
  const int32_t timer = StartCallbackTimer(tick, 50);
  EXPECT_EQ(Read(door, 0), "Normal");
  StopCallbackTimer(timer);
  EXPECT_GE(tick->calls, 5);  // about 10 at a 50 ms beat
  EXPECT_EQ(inner, "5 Invalid procedure call or argument");
  site.sim.SetStatusAnswer(sim::StatusAnswer::kNow);
  EXPECT_EQ(Read(door, 1), "Secure");
}

}  // namespace
}  // namespace vmio
