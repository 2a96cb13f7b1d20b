#include <gtest/gtest.h>

#include <chrono>

#include "adam_sim.h"
#include "devices/adam/adam.h"
#include "support/loopback_peer.h"
#include "support/raised.h"
#include "support/test_clock.h"

namespace vmio {
namespace {

using sim::AdamSim;
using sim::AdamSimOptions;
using sim::AdamUdpMode;
using test::Raised;
using namespace std::chrono_literals;

// A running simulated module and a driver that asks it for its model.
struct Rig {
  explicit Rig(AdamSimOptions options) : module(std::move(options)), adam(Started(module)) {}
  void Connect() { adam.Connect(module.DeviceString()); }
  int Reads() const { return module.RequestCount(1); }

  AdamSim module;
  ADAM adam;

 private:
  static uint16_t Started(AdamSim& m) {
    m.Start();
    return static_cast<uint16_t>(m.UdpPort());
  }
};

// Switches a relay as another Modbus client would, so the driver's read-back can be seen.
void SwitchRelay(const AdamSim& module, int16_t relay, bool on) {
  ModbusT other;
  other.Connect("127.0.0.1", static_cast<uint16_t>(module.ModbusPort()));
  other.SetCoilState(static_cast<int16_t>(16 + relay), on);
}

TEST(ADAM, BuildsThePortTableOfEveryModel) {
  struct Expected {
    const char* model;
    int inputs;
    int relays;
  };
  for (const Expected& e : {Expected{"6015", 0, 0},
                            {"6017", 0, 2},
                            {"6018", 0, 8},
                            {"6024", 2, 2},
                            {"6050", 12, 6},
                            {"6051", 14, 2},
                            {"6052", 8, 8},
                            {"6060", 6, 6},
                            {"6066", 6, 6}}) {
    SCOPED_TRACE(e.model);
    Rig rig({.model = e.model});
    rig.Connect();
    const int ports = e.inputs + e.relays;
    ASSERT_EQ(rig.adam.Ports(), ports);
    for (int i = 0; i < ports; ++i) {
      const bool input = i < e.inputs;
      EXPECT_EQ(rig.adam.PortDirection(i), input ? IOInput : IOBidirectional);
      EXPECT_EQ(rig.adam.PortType(i), 11);
      EXPECT_EQ(rig.adam.PortName(i),
                input ? "Digital input " + std::to_string(i) : "Relay output " + std::to_string(i - e.inputs));
    }
    EXPECT_EQ(rig.module.QueryCount(), 1);
  }
}

TEST(ADAM, ReadsEveryPointFromOneReadCachedForHalfASecond) {
  test::TestClock clock;
  Rig rig({.model = "6060"});
  rig.module.Points().SetInput(2, true);
  rig.module.Points().SetInput(6, true);
  rig.Connect();
  SwitchRelay(rig.module, 3, true);
  const int probe = rig.Reads();

  std::vector<bool> seen;
  for (int i = 0; i < 12; ++i) seen.push_back(rig.adam.PortValue(i).AsBool());
  EXPECT_EQ(seen, (std::vector<bool>{false, true, false, false, false, true,  //
                                     false, false, false, true, false, false}));
  EXPECT_EQ(rig.Reads(), probe + 1);

  rig.module.Points().SetInput(2, false);
  clock.Advance(100ms);
  EXPECT_TRUE(rig.adam.PortValue(1).AsBool());  // still the cached state
  EXPECT_EQ(rig.Reads(), probe + 1);
  clock.Advance(600ms);
  EXPECT_FALSE(rig.adam.PortValue(1).AsBool());
  EXPECT_EQ(rig.Reads(), probe + 2);
  // Each read asks for coils 0 to 31 (after the probe, transaction 0, and the first read).
  EXPECT_EQ(rig.module.RequestLog().back(), (std::vector<uint8_t>{0, 2, 0, 0, 0, 6, 1, 1, 0, 0, 0, 32}));
}

TEST(ADAM, InputsAboveEightAlwaysReadFalse) {
  Rig rig({.model = "6050"});
  for (int i : {7, 8, 9, 11}) rig.module.Points().SetInput(i + 1, true);
  rig.Connect();
  SwitchRelay(rig.module, 2, true);
  EXPECT_TRUE(rig.adam.PortValue(7).AsBool());
  EXPECT_FALSE(rig.adam.PortValue(8).AsBool());
  EXPECT_FALSE(rig.adam.PortValue(9).AsBool());
  EXPECT_FALSE(rig.adam.PortValue(11).AsBool());
  EXPECT_TRUE(rig.adam.PortValue(14).AsBool());  // relay 2, from the third status byte
  EXPECT_FALSE(rig.adam.PortValue(12).AsBool());
}

TEST(ADAM, RelaysAreTheOnlyPortsOfOutputOnlyModels) {
  Rig rig({.model = "6017"});
  rig.Connect();
  SwitchRelay(rig.module, 1, true);
  EXPECT_FALSE(rig.adam.PortValue(0).AsBool());
  EXPECT_TRUE(rig.adam.PortValue(1).AsBool());

  Rig none({.model = "6015"});
  none.Connect();
  EXPECT_EQ(none.adam.Ports(), 0);
  // A read still asks the module before the index is found wanting.
  EXPECT_EQ(Raised([&] { none.adam.PortValue(0); }), "9 Subscript out of range");
  EXPECT_EQ(none.Reads(), 2);
}

TEST(ADAM, WritesSwitchRelayCoilsFromSixteen) {
  Rig rig({.model = "6050"});
  rig.Connect();
  EXPECT_FALSE(rig.adam.PortValue(12).AsBool());
  const int reads = rig.Reads();

  rig.adam.PortValue(12, Variant(true));
  EXPECT_TRUE(rig.module.Points().Output(1));
  EXPECT_EQ(rig.module.RequestLog().back(), (std::vector<uint8_t>{0, 2, 0, 0, 0, 6, 1, 5, 0x00, 0x10, 0xFF, 0x00}));
  rig.adam.PortValue(17, Variant(true));
  rig.adam.PortValue(17, Variant(false));
  EXPECT_FALSE(rig.module.Points().Output(6));
  EXPECT_EQ(rig.module.RequestLog().back(), (std::vector<uint8_t>{0, 4, 0, 0, 0, 6, 1, 5, 0x00, 0x15, 0x00, 0x00}));
  // The written state answers the next read without asking the module.
  EXPECT_TRUE(rig.adam.PortValue(12).AsBool());
  EXPECT_EQ(rig.Reads(), reads);
  EXPECT_EQ(rig.module.RequestCount(5), 3);
}

TEST(ADAM, ModbusErrorsReachTheCallerAndAFailedReadHoldsOffTheNext) {
  Rig rig({.model = "6060"});
  rig.module.Points().SetInput(1, true);
  rig.Connect();
  rig.module.SetException(1, 4);
  const int reads = rig.Reads();
  EXPECT_EQ(Raised([&] { rig.adam.PortValue(0); }), "46005 Modbus exception 4occured");
  // The cache clock restarted before the failed read: the next read within 500 ms answers
  // from the table (never filled) without asking.
  EXPECT_FALSE(rig.adam.PortValue(0).AsBool());
  EXPECT_EQ(rig.Reads(), reads + 1);

  rig.module.SetException(5, 6);
  EXPECT_EQ(Raised([&] { rig.adam.PortValue(6, Variant(true)); }), "46005 Modbus exception 6occured");
  EXPECT_FALSE(rig.adam.PortValue(6).AsBool());  // not recorded
}

TEST(ADAM, ConnectFailuresBeforeTheModbusConnectLeaveItUnconnected) {
  ADAM adam;
  const std::string connectionFailed = "45001 Connection failed";
  EXPECT_EQ(Raised([&] { adam.Connect("127.0.0.1:abc"); }), connectionFailed);
  EXPECT_EQ(Raised([&] { adam.Connect(""); }), connectionFailed);
  const uint16_t unused = test::Listener().Port();

  // After a success, a reconnect that cannot connect reports just that.
  Rig rig({.model = "6060"});
  rig.Connect();
  EXPECT_EQ(Raised([&] { rig.adam.Connect("127.0.0.1:" + std::to_string(unused)); }), connectionFailed);
  EXPECT_EQ(Raised([&] { rig.adam.Ports(); }), "45003 Not connected");
  EXPECT_EQ(rig.adam.PortDirection(11), IOBidirectional);
}

TEST(ADAM, ConnectFailuresAfterTheModbusConnectLeaveItConnected) {
  {
    Rig rig({.model = "6060"});
    rig.module.SetException(1, 2);
    EXPECT_EQ(Raised([&] { rig.Connect(); }), "45001 Unrecognised device");
    EXPECT_EQ(rig.adam.Ports(), 0);
    EXPECT_EQ(rig.module.QueryCount(), 0);
  }
  {
    Rig rig({.model = "6099"});
    EXPECT_EQ(Raised([&] { rig.Connect(); }), "45001 Unsupported model number");
    EXPECT_EQ(rig.adam.Ports(), 0);
  }
  {
    Rig rig({.model = "6060", .udp_mode = AdamUdpMode::NoCarriageReturn});
    EXPECT_EQ(Raised([&] { rig.Connect(); }), "5 Invalid procedure call or argument");
    EXPECT_EQ(rig.adam.Ports(), 0);
  }
  {
    // Nothing listens on the query port: the refusal fails the receive.
    AdamSim module({.model = "6060"});
    module.Start();
    ADAM adam(test::Listener().Port());
    EXPECT_EQ(Raised([&] { adam.Connect(module.DeviceString()); }), "45001 Failed to get the model number");
    EXPECT_EQ(adam.Ports(), 0);
  }
  {
    // A model the driver does not know keeps the previous model's table.
    Rig first({.model = "6050"});
    first.Connect();
    AdamSim other({.model = "6099", .udp_port = first.module.UdpPort()});
    first.module.Stop();
    other.Start();
    EXPECT_EQ(Raised([&] { first.adam.Connect(other.DeviceString()); }), "45001 Unsupported model number");
    EXPECT_EQ(first.adam.Ports(), 18);
    EXPECT_EQ(first.adam.PortDirection(0), IOInput);
  }
}

TEST(ADAM, AModelThatDoesNotAnswerFailsWithInvalidProcedureCallAfterFiveSeconds) {
  Rig rig({.model = "6060", .udp_mode = AdamUdpMode::Silent});
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Raised([&] { rig.Connect(); }), "5 Invalid procedure call or argument");
  EXPECT_GE(std::chrono::steady_clock::now() - start, 4900ms);
  EXPECT_EQ(rig.module.QueryCount(), 1);
}

TEST(ADAM, UsesPort502WhenTheDeviceStringHasNone) {
  AdamSim module({.model = "6052", .modbus_port = 502});
  try {
    module.Start();
  } catch (const std::runtime_error& e) {
    GTEST_SKIP() << e.what();
  }
  ADAM adam(static_cast<uint16_t>(module.UdpPort()));
  adam.Connect("127.0.0.1");
  EXPECT_EQ(adam.Ports(), 16);
}

}  // namespace
}  // namespace vmio
