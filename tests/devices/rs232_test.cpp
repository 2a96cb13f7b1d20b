#include "devices/rs232/rs232.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "serial_sim.h"
#include "support/counting_target.h"
#include "support/raised.h"
#include "support/timing.h"
#include "vmio/events.h"

namespace vmio {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using test::Clock;
using test::Raised;

std::string Text(const Variant& v) { return v.AsString(); }

class RS232Test : public ::testing::Test {
 protected:
  sim::SerialSim instrument;
  RS232 rs232;
};

TEST_F(RS232Test, CommandsArePortsWithoutAnyConnection) {
  EXPECT_EQ(rs232.Ports(), 0);
  EXPECT_EQ(rs232.AddCommand("T?\r"), 0);
  EXPECT_EQ(rs232.AddCommand("\r\n"), 1);
  EXPECT_EQ(rs232.AddCommand("H?"), 2);
  EXPECT_EQ(rs232.Ports(), 3);
  EXPECT_EQ(rs232.GetCommand(0), "T?\r");
  EXPECT_EQ(rs232.GetCommand(1), "\r\n");
  for (int32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(rs232.PortDirection(i), IOInput);
    EXPECT_EQ(rs232.PortType(i), vtString);
    EXPECT_EQ(rs232.PortName(i), "Sensor " + std::to_string(i + 1));
    EXPECT_EQ(Raised([&] { rs232.PortValue(i, Variant(true)); }),
              "45004 Port " + std::to_string(i + 1) + "is not an output port");
  }
  for (int32_t bad : {-1, 3}) {
    EXPECT_EQ(Raised([&] { rs232.GetCommand(bad); }), "9 Subscript out of range");
    EXPECT_EQ(Raised([&] { rs232.PortDirection(bad); }), "9 Subscript out of range");
    EXPECT_EQ(Raised([&] { rs232.PortType(bad); }), "9 Subscript out of range");
    EXPECT_EQ(Raised([&] { rs232.PortName(bad); }), "9 Subscript out of range");
    EXPECT_EQ(Raised([&] { rs232.PortValue(bad); }), "9 Subscript out of range");
    EXPECT_EQ(Raised([&] { rs232.PortValue(bad, Variant(true)); }), "9 Subscript out of range");
  }
  // No serial port object yet, and none after Disconnect.
  EXPECT_EQ(Raised([&] { rs232.PortValue(0); }), "91 Object variable or With block variable not set");
  EXPECT_EQ(Raised([&] { rs232.PortValue(1); }), "91 Object variable or With block variable not set");
  rs232.Connect(instrument.Path());
  rs232.Disconnect();
  rs232.Disconnect();
  EXPECT_EQ(Raised([&] { rs232.PortValue(0); }), "91 Object variable or With block variable not set");
  EXPECT_EQ(rs232.Ports(), 3) << "commands survive Disconnect";
}

TEST_F(RS232Test, LateBoundMembers) {
  const Variant add[] = {"T?\r"};
  const Variant first[] = {int32_t{0}};
  const Variant none[] = {Variant()};
  EXPECT_EQ(rs232.Call("AddCommand", add), Variant(int32_t{0}));
  EXPECT_EQ(rs232.Call("addcommand", add), Variant(int32_t{1}));
  EXPECT_EQ(rs232.Call("GETCOMMAND", first), Variant("T?\r"));
  const Variant by_i2[] = {int16_t{1}};
  EXPECT_EQ(rs232.Call("GetCommand", by_i2), Variant("T?\r"));
  const Variant number[] = {int32_t{5}};
  EXPECT_EQ(Raised([&] { rs232.Call("AddCommand", number); }), "13 Type mismatch");
  EXPECT_EQ(Raised([&] { rs232.Call("GetCommand", add); }), "13 Type mismatch");
  EXPECT_EQ(Raised([&] { rs232.Call("GetCommand", {}); }),
            "450 Wrong number of arguments or invalid property assignment");
  const Variant two[] = {"a", "b"};
  EXPECT_EQ(Raised([&] { rs232.Call("AddCommand", two); }),
            "450 Wrong number of arguments or invalid property assignment");
  EXPECT_EQ(Raised([&] { rs232.Call("GetCommand", number); }), "9 Subscript out of range");
  EXPECT_EQ(Raised([&] { rs232.Call("RemoveCommand", none); }), "438 Object doesn't support this property or method");
  EXPECT_EQ(rs232.Ports(), 2);
}

TEST_F(RS232Test, ConnectFailuresNameThePort) {
  rs232.AddCommand("T?\r");
  EXPECT_EQ(Raised([&] { rs232.Connect("COM1"); }), "45001 Error opening COM port 0");
  EXPECT_EQ(Raised([&] { rs232.Connect("-2"); }), "45001 Error opening COM port -2");
  EXPECT_EQ(Raised([&] { rs232.Connect("/dev/no-such-tty"); }), "45001 Error opening COM port /dev/no-such-tty");
  EXPECT_EQ(Raised([&] { rs232.Connect("/dev/null"); }), "45001 Error opening COM port /dev/null") << "not a terminal";
  EXPECT_EQ(Raised([&] { rs232.Connect("70000"); }), "6 Overflow");
  // Cut at the NUL, these would open the instrument's line (or COM1).
  const std::string cut_path = instrument.Path() + std::string("\0x", 2);
  EXPECT_EQ(Raised([&] { rs232.Connect(cut_path); }), "45001 Error opening COM port " + cut_path);
  EXPECT_EQ(Raised([&] { rs232.Connect(std::string("1\0", 2)); }), "45001 Error opening COM port 1");
  // The failed Connect leaves an unopened port behind; reading it is the port's own error.
  EXPECT_EQ(Raised([&] { rs232.Connect("/dev/no-such-tty"); }), "45001 Error opening COM port /dev/no-such-tty");
  EXPECT_EQ(Raised([&] { rs232.PortValue(0); }), "8018 Operation valid only when the port is open");
  EXPECT_EQ(instrument.Received(), "");
}

TEST_F(RS232Test, OpensTheLineAt9600EightNoneOneRaw) {
  const sim::SerialLineSettings before = instrument.LineSettings();
  ASSERT_TRUE(before.input_baud == 19200 && before.two_stop_bits && before.hardware_handshake && before.canonical &&
              before.echo && before.cr_to_nl)
      << "the line starts set up otherwise";
  rs232.Connect(instrument.Path());
  const sim::SerialLineSettings s = instrument.LineSettings();
  EXPECT_EQ(s.input_baud, 9600);
  EXPECT_EQ(s.output_baud, 9600);
  EXPECT_EQ(s.data_bits, 8);
  EXPECT_FALSE(s.parity);
  EXPECT_FALSE(s.two_stop_bits);
  EXPECT_FALSE(s.hardware_handshake);
  EXPECT_FALSE(s.software_handshake);
  EXPECT_FALSE(s.canonical);
  EXPECT_FALSE(s.echo);
  EXPECT_FALSE(s.signals);
  EXPECT_FALSE(s.output_processing);
  EXPECT_FALSE(s.cr_to_nl);
  EXPECT_FALSE(s.nl_to_cr);
  EXPECT_FALSE(s.ignore_cr);
  EXPECT_EQ(s.vmin, 0);
  EXPECT_EQ(s.vtime, 0);
}

TEST_F(RS232Test, CommandModeSendsTheCommandAndReturnsTheReplyLine) {
  instrument.SetReply("T?", {.text = "21.4\r\n"});
  instrument.SetReply("U?", {.text = "\xB0"
                                     "C\n"});  // code page 1252 degree sign
  instrument.SetReply("\xB0?", {.text = "2\x00"
                                        "1\r"s});  // NULs are dropped
  instrument.SetReply("S?", {.text = "*B01:42.0\r"});
  rs232.AddCommand("T?\r");
  rs232.AddCommand("U?\r\n");
  rs232.AddCommand("\xC2\xB0?\n");  // "°?" in the library's UTF-8
  rs232.AddCommand("S?\r");
  rs232.Connect(instrument.Path());

  EXPECT_EQ(Text(rs232.PortValue(0)), "21.4");
  EXPECT_EQ(instrument.Received(), "T?\r");
  // The LF after the first reply's CR is discarded before the next command, not taken as
  // an empty reply.
  EXPECT_EQ(Text(rs232.PortValue(0)), "21.4");
  EXPECT_EQ(Text(rs232.PortValue(1)),
            "\xC2\xB0"
            "C");
  EXPECT_EQ(Text(rs232.PortValue(2)), "21");
  EXPECT_EQ(Text(rs232.PortValue(3)), "*B01:42.0") << "the *B rule is for listening ports";
  EXPECT_EQ(instrument.Received(), "T?\rT?\rU?\r\n\xB0?\nS?\r");
}

TEST_F(RS232Test, WaitsForAReplyThatComesSlowlyAndLetsEventsRun) {
  auto tick = std::make_shared<test::CountingTarget>();
  const int32_t timer = StartCallbackTimer(tick, 20);
  instrument.SetReply("T?", {.text = "21.4\r\n", .delay_ms = 150, .piece_size = 2, .piece_gap_ms = 50});
  rs232.AddCommand("T?\r");
  rs232.Connect(instrument.Path());

  const long cpu_before = test::CpuMicroseconds();
  const auto elapsed = test::Timed([&] { EXPECT_EQ(Text(rs232.PortValue(0)), "21.4"); });
  const long cpu_us = test::CpuMicroseconds() - cpu_before;
  StopCallbackTimer(timer);

  EXPECT_GE(elapsed, 240ms) << "three pieces: 150 + 50 + 50 ms";
  EXPECT_GE(tick->calls, 8) << "the timer ran inside the wait";
  EXPECT_LT(cpu_us, std::chrono::duration_cast<std::chrono::microseconds>(elapsed).count() / 3)
      << "the wait sleeps rather than spins";
}

TEST_F(RS232Test, ATimerThatReadsTheDeviceDuringItsReplyWaitIsRefused) {
  instrument.SetReply("T?", {.text = "21.4\r\n", .delay_ms = 150});
  instrument.SetReply("H?", {.text = "40\r\n"});
  rs232.AddCommand("T?\r");
  rs232.AddCommand("H?\r");
  rs232.Connect(instrument.Path());
  auto tick = std::make_shared<test::CountingTarget>();
  std::string inner = "not called";
  tick->also = [&] {
    if (tick->calls == 1) inner = Raised([&] { rs232.PortValue(1); });
  };
  const int32_t timer = StartCallbackTimer(tick, 20);
  EXPECT_EQ(Text(rs232.PortValue(0)), "21.4");
  StopCallbackTimer(timer);
  EXPECT_EQ(inner, "5 Invalid procedure call or argument");
  EXPECT_EQ(instrument.Received(), "T?\r") << "the refused read sent nothing";
  EXPECT_EQ(Text(rs232.PortValue(1)), "40") << "and the device is usable again";
}

TEST_F(RS232Test, ListeningPortsKeepTheLastCompleteLine) {
  rs232.AddCommand("\r\n");  // 0
  rs232.AddCommand("\r");    // 1: shares the buffer and the last line
  rs232.AddCommand("");      // 2: takes everything
  rs232.AddCommand("T?\r");  // 3: a command port leaves the last line alone
  instrument.SetReply("T?", {.text = "9\r"});
  rs232.Connect(instrument.Path());

  EXPECT_EQ(Text(rs232.PortValue(0)), "") << "nothing yet";
  instrument.Send("1\r\n2\r\n3");
  EXPECT_EQ(Text(rs232.PortValue(0)), "2");
  EXPECT_EQ(Text(rs232.PortValue(0)), "2") << "nothing new: the same line again";
  EXPECT_EQ(Text(rs232.PortValue(1)), "2") << "the buffered 3 has no CR yet";
  instrument.Send("4\r");
  EXPECT_EQ(Text(rs232.PortValue(1)), "34");
  EXPECT_EQ(Text(rs232.PortValue(3)), "9");
  EXPECT_EQ(Text(rs232.PortValue(0)), "34");
  EXPECT_EQ(instrument.Received(), "T?\r") << "listening sends nothing";

  instrument.Send("ab\r\ncd");
  EXPECT_EQ(Text(rs232.PortValue(2)), "ab\r\ncd");
  EXPECT_EQ(Text(rs232.PortValue(2)), "");
  EXPECT_EQ(Text(rs232.PortValue(0)), "");

  // A line beginning *B loses its first five characters, and the shortened line is kept.
  instrument.Send("*B01:42.0\r\n");
  EXPECT_EQ(Text(rs232.PortValue(0)), "42.0");
  EXPECT_EQ(Text(rs232.PortValue(0)), "42.0");
  instrument.Send("*B01:*B345678\r\n");
  EXPECT_EQ(Text(rs232.PortValue(0)), "*B345678");
  EXPECT_EQ(Text(rs232.PortValue(0)), "678");
}

TEST_F(RS232Test, ListeningPortFollowsAnInstrumentThatTalksByItself) {
  rs232.AddCommand("\r\n");
  rs232.Connect(instrument.Path());
  instrument.SetListenLine("*B01:42.0\r\n", 30);
  std::this_thread::sleep_for(100ms);
  EXPECT_EQ(Text(rs232.PortValue(0)), "42.0");
  instrument.SetListenLine("*B02:17.5\r\n", 30);
  std::this_thread::sleep_for(100ms);
  EXPECT_EQ(Text(rs232.PortValue(0)), "17.5");
}

TEST_F(RS232Test, ReconnectsAfterDisconnect) {
  instrument.SetReply("T?", {.text = "21.4\r"});
  rs232.AddCommand("T?\r");
  rs232.Connect(instrument.Path());
  EXPECT_EQ(Text(rs232.PortValue(0)), "21.4");
  rs232.Disconnect();
  rs232.Connect(instrument.Path());
  rs232.Connect(instrument.Path());  // again while open: the old line is released first
  EXPECT_EQ(Text(rs232.PortValue(0)), "21.4");
  EXPECT_EQ(instrument.Received(), "T?\rT?\r");
}

}  // namespace
}  // namespace vmio
