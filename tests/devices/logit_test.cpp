// The LogIT driver and its transport against a simulated logger, over the real HID seam.
#include "devices/logit/logit.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "devices/logit/logit_calibration.h"
#include "devices/logit/logit_usb.h"
#include "logit_sim.h"
#include "support/raised.h"
#include "support/test_clock.h"
#include "vmio/events.h"

namespace vmio {
namespace {

using namespace std::chrono_literals;
using Bytes = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;
using test::Raised;

class LogITTest : public ::testing::Test {
 protected:
  std::vector<Bytes> Wire() const {
    std::vector<Bytes> bytes;
    for (const auto& c : sim.Commands(0)) bytes.push_back(c.bytes);
    return bytes;
  }

  // Lets timers run for a while on the test clock, as a host's message loop would; returns
  // when (on that clock) each command that reached the logger meanwhile was sent. A timer's
  // command has arrived by the time its callback returns: it waits for the answer.
  std::vector<WaitClock::time_point> Pump(test::TestClock& clock, std::chrono::milliseconds how_long) {
    std::vector<WaitClock::time_point> sent;
    const size_t before = sim.Commands(0).size();
    for (auto pumped = 0ms; pumped < how_long; pumped += 5ms) {
      RunPendingEvents();
      while (before + sent.size() < sim.Commands(0).size()) sent.push_back(WaitClock::now());
      clock.Advance(5ms);
    }
    return sent;
  }

  sim::LogITSim sim;
  std::string path = sim.DevicePath(0);
};

TEST_F(LogITTest, ConnectWakesTheLoggerSettlesAndReadsItsModelAndSensors) {
  LogIT logit;
  logit.Connect(path);
  const auto commands = sim.Commands(0);
  ASSERT_EQ(Wire(), (std::vector<Bytes>{{13}, {1}, {4, 0}, {4, 1}, {4, 2}}));
  EXPECT_GE(commands[1].at - commands[0].at, 500ms) << "the attention byte's settle";
  EXPECT_LT(commands[1].at - commands[0].at, 700ms);
  EXPECT_EQ(logit.Ports(), 3);
  EXPECT_EQ(logit.PortName(0), "Temperature");
  EXPECT_EQ(logit.PortName(1), "Relay");
  EXPECT_EQ(logit.PortName(2), "Light");
  EXPECT_EQ(logit.PortDirection(0), IOInput);
  EXPECT_EQ(logit.PortDirection(1), IOBidirectional);
  EXPECT_EQ(logit.PortType(0), vtString) << "numeric sensors say string and read as doubles";
  EXPECT_EQ(logit.PortType(1), vtBool);

  sim.ClearCommands(0);
  EXPECT_EQ(logit.PortValue(0), Variant(25.0));  // 0x4000 by the example table
  EXPECT_EQ(logit.PortValue(2), Variant(1000.0));
  sim.SetReading(0, 0, 0x5800);
  EXPECT_EQ(logit.PortValue(0), Variant(37.5));
  EXPECT_EQ(Wire(), (std::vector<Bytes>{{16, 0, 1}, {16, 2, 3}, {16, 0, 1}})) << "each with its channel byte";

  sim.ClearCommands(0);
  EXPECT_EQ(logit.PortValue(1), Variant(false));
  logit.PortValue(1, Variant(true));
  EXPECT_EQ(sim.Outputs(0), 2);
  EXPECT_EQ(logit.PortValue(1), Variant(true));
  logit.PortValue(1, Variant(false));
  EXPECT_EQ(sim.Outputs(0), 0);
  EXPECT_EQ(Wire(), (std::vector<Bytes>{{16, 1, 2}, {20, 2}, {16, 1, 2}, {20, 0}}));

  EXPECT_EQ(Raised([&] { logit.PortValue(0, Variant(true)); }), "45004 Port 1is not an output port");
  EXPECT_EQ(Raised([&] { logit.PortValue(1, Variant(1)); }), "13 Type mismatch");
  for (const int32_t bad : {-1, 3}) {
    EXPECT_EQ(Raised([&] { logit.PortDirection(bad); }), "9 Subscript out of range");
    EXPECT_EQ(Raised([&] { logit.PortType(bad); }), "9 Subscript out of range");
    EXPECT_EQ(Raised([&] { logit.PortName(bad); }), "9 Subscript out of range");
    EXPECT_EQ(Raised([&] { logit.PortValue(bad); }), "9 Subscript out of range");
    EXPECT_EQ(Raised([&] { logit.PortValue(bad, Variant(true)); }), "9 Subscript out of range");
  }

  logit.Disconnect();
  EXPECT_EQ(Raised([&] { logit.Ports(); }), "45003 Not connected");
  EXPECT_EQ(Raised([&] { logit.PortDirection(0); }), "45003 Not connected");
  EXPECT_EQ(Raised([&] { logit.PortValue(0); }), "45003 Not connected");
  EXPECT_EQ(Raised([&] { logit.PortValue(1, Variant(true)); }), "45003 Not connected");
  EXPECT_EQ(logit.PortName(2), "Light") << "names answer from the last connection";
}

TEST_F(LogITTest, OnlyTheBlackBoxFamilyConnectsAndEveryRefusalHasItsText) {
  LogIT logit;
  EXPECT_EQ(Raised([&] { logit.Connect(sim.Root() + "/dev/hidraw77"); }), "45001 Connection failed");
  EXPECT_EQ(Raised([&] { logit.Connect(path + std::string("\0x", 2)); }), "45001 Connection failed") << "cut at NUL";
  EXPECT_EQ(Raised([&] { logit.Ports(); }), "45003 Not connected");
  for (const auto& [model, text] : std::vector<std::pair<uint8_t, std::string>>{
           {56, "45001 Unsupported model number 38"}, {2, "45001 Unsupported model number 2"}}) {
    sim.SetModel(0, model);
    EXPECT_EQ(Raised([&] { logit.Connect(path); }), text);
    EXPECT_EQ(logit.Ports(), 0) << "left open and connected, without ports";
    logit.Disconnect();
  }
  sim.SetModel(0, 55);
  logit.Connect(path);
  EXPECT_EQ(logit.Ports(), 3);
  logit.Disconnect();

  sim.SetSilent(0, true);
  const auto start = Clock::now();
  EXPECT_EQ(Raised([&] { logit.Connect(path); }), "45001 No response from the LogIT device");
  EXPECT_LT(Clock::now() - start, 900ms) << "a 500 ms settle and a 100 ms wait";
  logit.Disconnect();
}

TEST_F(LogITTest, SensorsAreNamedByCodeAndReadRawWithoutATable) {
  sim.SetSensor(0, 0, 0, 0);
  sim.SetSensor(0, 1, 253, 5);
  sim.SetSensor(0, 2, 77, 6);
  sim.SetReading(0, 2, 300);
  LogIT logit;
  logit.Connect(path);
  EXPECT_EQ(logit.PortName(0), "No device");
  EXPECT_EQ(logit.PortName(1), "Elapsed time");
  EXPECT_EQ(logit.PortName(2), "Port type 77");
  EXPECT_EQ(logit.PortType(2), vtString);
  EXPECT_EQ(logit.PortValue(2), Variant(int32_t{300})) << "0x01 0x2C, no record: the raw number";
  EXPECT_EQ(GetSensorName(250), "Reserved");
  EXPECT_EQ(GetSensorName(254), "Timestamp");
  EXPECT_EQ(GetSensorName(255), "Undefined");
  EXPECT_EQ(GetSensorName(90), "Door contact");
  EXPECT_EQ(GetSensorName(140), "Pulse counter");

  // Tables the file lacks: a numeric reading stays empty, an on/off one reads False.
  const std::string file = std::filesystem::temp_directory_path() / "vmio-logit-missing-tables.txt";
  std::ofstream(file) << "%%SENSOR 77,Gauge,,,,,NoSuchTable\n%%SENSOR 253,Switch,,,,,OnOff\n\n";
  LoadSensorTable(file);
  std::filesystem::remove(file);
  EXPECT_EQ(logit.PortName(2), "Gauge") << "the tables are the thread's, shared by its objects";
  EXPECT_TRUE(logit.PortValue(2).IsEmpty());
  EXPECT_EQ(logit.PortValue(1), Variant(false));
  EXPECT_EQ(logit.PortType(1), vtBool);
  LoadSensorTable();
}

TEST_F(LogITTest, TheKeepAliveRunsOnlyWhileEventsRunAndAnIdleLoggerIsWokenFirst) {
  test::TestClock clock;
  LogIT logit;
  logit.Connect(path);
  sim.ClearCommands(0);
  clock.Advance(1100ms);                // no events run: no keep-alive
  std::this_thread::sleep_for(1100ms);  // the simulated logger dozes off on the system clock
  EXPECT_TRUE(Wire().empty());
  EXPECT_TRUE(sim.Asleep(0));
  EXPECT_EQ(logit.PortValue(0), Variant(25.0)) << "the wake-up answer is not taken for the reading";
  EXPECT_EQ(Wire(), (std::vector<Bytes>{{13}, {16, 0, 1}}));

  Pump(clock, 10ms);  // the beat missed meanwhile fires once, at once
  sim.ClearCommands(0);
  const auto sent = Pump(clock, 2300ms);
  const auto keep_alives = sim.Commands(0);
  ASSERT_GE(keep_alives.size(), 3u);
  ASSERT_EQ(sent.size(), keep_alives.size());
  for (size_t i = 0; i < keep_alives.size(); ++i) {
    EXPECT_EQ(keep_alives[i].bytes, Bytes{1}) << "the model query, with no wake-up before it";
    if (i > 0) {
      EXPECT_GT(sent[i] - sent[i - 1], 700ms);
      EXPECT_LT(sent[i] - sent[i - 1], 850ms);
    }
  }
  EXPECT_FALSE(sim.Asleep(0));
  EXPECT_EQ(logit.PortValue(2), Variant(1000.0));

  logit.Disconnect();
  sim.ClearCommands(0);
  Pump(clock, 900ms);
  EXPECT_TRUE(Wire().empty()) << "never after Disconnect";
}

TEST_F(LogITTest, AConnectedObjectThatIsDroppedStopsItsTimer) {
  test::TestClock clock;
  {
    auto logit = std::make_shared<LogIT>();
    logit->Connect(path);
  }
  sim.ClearCommands(0);
  EXPECT_EQ(MillisecondsUntilNextEvent(), -1);
  Pump(clock, 800ms);
  EXPECT_TRUE(Wire().empty());
}

TEST_F(LogITTest, ALostLinkIsACommunicationError) {
  LogIT logit;
  logit.Connect(path);
  sim.DropConnections(0);
  EXPECT_EQ(Raised([&] { logit.PortValue(0); }), "45005 Device communication error");
  EXPECT_EQ(Raised([&] { logit.PortValue(1, Variant(true)); }), "45005 Device communication error");
  logit.Disconnect();
}

TEST_F(LogITTest, TheTransportKeepsLeftoversAndSendsReportsOfAtMostSevenBytes) {
  LogITUSB usb;
  EXPECT_FALSE(usb.OpenDevice(sim.Root() + "/dev/none"));
  EXPECT_FALSE(usb.DeviceOpen());
  EXPECT_EQ(usb.ReceiveByte(50), -1);
  EXPECT_FALSE(usb.SendByte(1));
  ASSERT_TRUE(usb.OpenDevice(path));
  EXPECT_TRUE(usb.DeviceOpen());

  EXPECT_TRUE(usb.SendData(Bytes{13}));
  std::this_thread::sleep_for(100ms);
  usb.Flush();
  EXPECT_TRUE(usb.SendData(Bytes{2, 1, 2, 3, 4, 5, 6}));  // read as the version query
  EXPECT_EQ(Raised([&] { usb.SendData(Bytes{2, 1, 2, 3, 4, 5, 6, 7}); }), "9 Subscript out of range");
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(sim.Commands(0).back().bytes, (Bytes{2, 1, 2, 3, 4, 5, 6})) << "nothing written for eight";

  Bytes three(3);
  EXPECT_EQ(usb.ReceiveData(3, three, 200), 3);
  EXPECT_EQ(three, (Bytes{'1', '.', '0'}));
  sim.SetStreaming(0, false);
  EXPECT_EQ(usb.ReceiveByte(0), '5') << "the fourth byte waited in the ring";
  auto start = Clock::now();
  EXPECT_EQ(usb.ReceiveByte(100), -1);
  EXPECT_GE(Clock::now() - start, 90ms);
  sim.SetStreaming(0, true);

  // A counter 10 ahead: seven bytes, then the same report counts 7 again from 7 behind.
  sim.JumpCounter(0, 10);
  Bytes jumped(14);
  EXPECT_EQ(usb.ReceiveData(14, jumped, 300), 14);
  EXPECT_EQ(jumped, Bytes(14, 0xEE));
  usb.CloseDevice();
  EXPECT_FALSE(usb.DeviceOpen());
  EXPECT_FALSE(usb.SendByte(1));
}

}  // namespace
}  // namespace vmio
