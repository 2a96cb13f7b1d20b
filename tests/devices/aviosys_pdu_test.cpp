#include "devices/http/aviosys_pdu.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "aviosys_sim.h"
#include "http_sim_server.h"
#include "support/ports.h"
#include "support/raised.h"

namespace vmio {
namespace {

using namespace std::chrono_literals;
using sim::AviosysSim;
using sim::AviosysSimOptions;
using test::Raised;
using test::Read;

std::vector<std::string> Names(AviosysPDU& pdu) {
  std::vector<std::string> names;
  for (int32_t i = 0; i < pdu.Ports(); ++i) names.push_back(pdu.PortName(i));
  return names;
}

// How many requests sent exactly this command.
int Sent(AviosysSim& unit, const std::string& command) {
  const std::vector<std::string> log = unit.Server().RequestLog();
  return static_cast<int>(std::count(log.begin(), log.end(), "/Set.cmd?CMD=" + command));
}

AviosysSimOptions FixedModel() {
  AviosysSimOptions o;
  o.fixed_model = true;
  return o;
}

TEST(AviosysPDU, AUnitWithASocketCountHasThatManySocketsNamedByTheUnit) {
  AviosysSimOptions options;
  options.sockets = 4;
  options.names = {"Lamp", "", "Caf\xE9"};  // the unit speaks code page 1252; the fourth has no name
  AviosysSim unit(options);
  unit.Start();
  AviosysPDU pdu;
  pdu.Connect(unit.DeviceString());
  EXPECT_EQ(unit.Server().RequestLog(), std::vector<std::string>{"/Set.cmd?CMD=GetPowerNum"});
  EXPECT_EQ(pdu.Ports(), 4);
  for (int32_t i = 0; i < 4; ++i) {
    EXPECT_EQ(pdu.PortDirection(i), IOBidirectional);
    EXPECT_EQ(pdu.PortType(i), vtBool);
  }
  EXPECT_EQ(Names(pdu), (std::vector<std::string>{"Lamp", "Port 2", "Caf\u00e9", "Port 4"}));
  for (const char* letter : {"A", "B", "C", "D"}) EXPECT_EQ(Sent(unit, std::string("GetPortName") + letter), 1);

  AviosysSimOptions failing = options;
  failing.names_fail = true;
  AviosysSim mute(failing);
  mute.Start();
  pdu.Connect(mute.DeviceString());
  EXPECT_EQ(Names(pdu), (std::vector<std::string>{"Port 1", "Port 2", "Port 3", "Port 4"}));

  // Beyond "Z" the letters go on through code page 1252: socket 99 is asked as byte 0xA4.
  AviosysSimOptions large;
  large.sockets = 100;
  large.names.resize(100);
  large.names[99] = "Far";
  AviosysSim big(large);
  big.Start();
  pdu.Connect(big.DeviceString());
  EXPECT_EQ(pdu.PortName(99), "Far");
  EXPECT_EQ(Sent(big, "GetPortName\xA4"), 1);
}

TEST(AviosysPDU, TheFixedModelHasEightInputsAndEightSocketsNumberedFrom51And61) {
  AviosysSim unit(FixedModel());
  unit.Start();
  unit.Points().SetInput(2, 1);
  unit.Points().SetInput(8, 1);
  unit.Points().SetOutput(1, 1);
  unit.Points().SetOutput(8, 1);
  AviosysPDU pdu;
  pdu.Connect(unit.DeviceString());
  ASSERT_EQ(pdu.Ports(), 16);
  for (int32_t i = 0; i < 16; ++i) EXPECT_EQ(pdu.PortDirection(i), i < 8 ? IOInput : IOBidirectional);
  EXPECT_EQ(Names(pdu), (std::vector<std::string>{"Input 1", "Input 2", "Input 3", "Input 4", "Input 5", "Input 6",
                                                  "Input 7", "Input 8", "Output 1", "Output 2", "Output 3", "Output 4",
                                                  "Output 5", "Output 6", "Output 7", "Output 8"}));
  EXPECT_EQ(unit.Server().RequestCount(), 1);  // names come without asking the unit

  std::vector<bool> states;
  for (int32_t i = 0; i < 16; ++i) states.push_back(Read(pdu, i));
  EXPECT_EQ(states, (std::vector<bool>{false, true, false, false, false, false, false, true,  //
                                       true, false, false, false, false, false, false, true}));
  EXPECT_EQ(unit.Server().RequestLog(),
            (std::vector<std::string>{"/Set.cmd?CMD=GetPowerNum", "/Set.cmd?CMD=GetIo", "/Set.cmd?CMD=GetPower"}));

  pdu.PortValue(8, Variant(true));
  pdu.PortValue(9, Variant(true));
  pdu.PortValue(15, Variant(false));
  EXPECT_EQ(Sent(unit, "SetPower+P61=1"), 1);
  EXPECT_EQ(Sent(unit, "SetPower+P62=1"), 1);
  EXPECT_EQ(Sent(unit, "SetPower+P68=0"), 1);
  EXPECT_EQ(unit.Points().Output(2), 1);
  EXPECT_EQ(unit.Points().Output(8), 0);
  EXPECT_TRUE(Read(pdu, 9));  // from the cache the write filled
  EXPECT_FALSE(Read(pdu, 15));
  EXPECT_EQ(Raised([&] { pdu.PortValue(3, Variant(true)); }), "45004 Port 4is not an output port");
  EXPECT_EQ(Raised([&] { pdu.PortValue(-1, Variant(true)); }), "45004 Port 0is not an output port");
}

TEST(AviosysPDU, OnceTheFixedModelWasSeenAnotherUnitKeepsItsNumbering) {
  AviosysSim fixed(FixedModel());
  fixed.Start();
  AviosysSim counted;  // four sockets, P60-P63
  counted.Start();
  counted.Points().SetOutput(2, 1);  // P61

  AviosysPDU pdu;
  pdu.Connect(fixed.DeviceString());
  pdu.Connect(counted.DeviceString());
  EXPECT_EQ(pdu.Ports(), 4);
  EXPECT_EQ(Names(pdu), (std::vector<std::string>{"Port 1", "Port 2", "Port 3", "Port 4"}));
  EXPECT_TRUE(Read(pdu, 0));  // P61 is read as the first socket
  EXPECT_FALSE(Read(pdu, 1));
  pdu.PortValue(0, Variant(false));
  EXPECT_EQ(
      counted.Server().RequestLog(),
      (std::vector<std::string>{"/Set.cmd?CMD=GetPowerNum", "/Set.cmd?CMD=GetPower", "/Set.cmd?CMD=SetPower+P61=0"}));
  EXPECT_EQ(counted.Points().Output(2), 0);
}

TEST(AviosysPDU, RepliesAreCutAtTheFirstLineBreakBeforeTheHtmlWrapperGoes) {
  AviosysSimOptions options;
  options.sockets = 3;
  options.extra_line = true;
  options.names = {"Heater"};
  AviosysSim unit(options);
  unit.Start();
  unit.Points().SetOutput(1, 1);
  unit.Points().SetOutput(2, 2);  // only 1 is on
  AviosysPDU pdu;
  pdu.Connect(unit.DeviceString());
  EXPECT_EQ(pdu.Ports(), 3);
  EXPECT_EQ(pdu.PortName(0), "Heater");
  EXPECT_TRUE(Read(pdu, 0));
  EXPECT_FALSE(Read(pdu, 1));
  pdu.PortValue(2, Variant(true));
  EXPECT_EQ(Sent(unit, "SetPower+P62=1"), 1);
  EXPECT_EQ(unit.Points().Output(3), 1);

  AviosysSimOptions bare;
  bare.sockets = 2;
  bare.html = false;
  AviosysSim plain(bare);
  plain.Start();
  plain.Points().SetOutput(2, 1);
  AviosysPDU plain_pdu;  // a fresh object: the first one's states are still cached
  plain_pdu.Connect(plain.DeviceString());
  EXPECT_EQ(plain_pdu.Ports(), 2);
  EXPECT_FALSE(Read(plain_pdu, 0));
  EXPECT_TRUE(Read(plain_pdu, 1));
}

TEST(AviosysPDU, SocketCountRepliesDecideThePortTable) {
  AviosysSimOptions error_options;
  error_options.power_num_reply = "# Error: unknown";
  AviosysSim error_unit(error_options);
  error_unit.Start();
  AviosysPDU pdu;
  pdu.Connect(error_unit.DeviceString());
  EXPECT_EQ(pdu.Ports(), 0);
  EXPECT_EQ(Raised([&] { pdu.PortDirection(0); }), "9 Subscript out of range");
  EXPECT_EQ(Raised([&] { pdu.PortValue(0); }), "9 Subscript out of range");

  // A unit that reports two sockets but switches four: the other pins' states are ignored, and
  // a write beyond the table switches the pin it names before failing.
  AviosysSimOptions fewer;
  fewer.sockets = 4;
  fewer.power_num_reply = "2";
  AviosysSim unit(fewer);
  unit.Start();
  unit.Points().SetOutput(3, 1);
  unit.Points().SetOutput(4, 1);
  AviosysPDU two;
  two.Connect(unit.DeviceString());
  EXPECT_EQ(two.Ports(), 2);
  EXPECT_FALSE(Read(two, 0));
  EXPECT_FALSE(Read(two, 1));
  EXPECT_EQ(Sent(unit, "GetPower"), 1);
  EXPECT_EQ(Raised([&] { two.PortValue(3, Variant(false)); }), "9 Subscript out of range");
  EXPECT_EQ(Sent(unit, "SetPower+P63=0"), 1);
  EXPECT_EQ(unit.Points().Output(4), 0);
}

TEST(AviosysPDU, ChecksIndexesThroughPortsAndRefusesBadWrites) {
  AviosysPDU pdu;
  for (const auto& call : std::vector<std::function<void()>>{
           [&] { pdu.Ports(); }, [&] { pdu.PortDirection(0); }, [&] { pdu.PortType(0); }, [&] { pdu.PortName(0); },
           [&] { pdu.PortValue(0); }, [&] { pdu.PortValue(0, Variant(true)); }}) {
    EXPECT_EQ(Raised(call), "45003 Not connected");
  }

  AviosysSim unit;
  unit.Start();
  pdu.Connect(unit.DeviceString());
  for (int32_t bad : {-1, 4}) {
    EXPECT_EQ(Raised([&] { pdu.PortDirection(bad); }), "9 Subscript out of range");
    EXPECT_EQ(Raised([&] { pdu.PortType(bad); }), "9 Subscript out of range");
    EXPECT_EQ(Raised([&] { pdu.PortName(bad); }), "9 Subscript out of range");
  }
  EXPECT_EQ(unit.Server().RequestCount(), 1);

  pdu.Disconnect();
  EXPECT_EQ(unit.Server().RequestCount(), 1);
}

TEST(AviosysPDU, UnreachableOrRefusingUnitsRaiseTheFixedErrors) {
  AviosysSimOptions guarded;
  guarded.auth = {sim::AuthScheme::Basic, "admin", "12345678"};
  AviosysSim unit(guarded);
  unit.Start();
  AviosysPDU pdu;
  EXPECT_EQ(Raised([&] { pdu.Connect("admin:wrong@" + unit.Server().Authority()); }),
            "45001 Unable to connect to the device");

  pdu.Connect(unit.DeviceString());
  pdu.PortValue(1, Variant(true));
  EXPECT_EQ(unit.Points().Output(2), 1);
  EXPECT_TRUE(Read(pdu, 1));

  unit.Server().Stop();
  EXPECT_EQ(Raised([&] { pdu.PortValue(1, Variant(false)); }), "45005 Unable to connect to the device");
  EXPECT_TRUE(Read(pdu, 1));             // the failed write left the cache alone
  EXPECT_EQ(pdu.PortName(1), "Port 2");  // a failed GetPortName is no error
  std::this_thread::sleep_for(600ms);
  EXPECT_EQ(Raised([&] { pdu.PortValue(1); }), "45005 Unable to connect to the device");
  EXPECT_EQ(Raised([&] { pdu.Connect(unit.Server().Authority()); }), "45001 Unable to connect to the device");
}

}  // namespace
}  // namespace vmio
