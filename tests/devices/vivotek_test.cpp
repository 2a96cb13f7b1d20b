#include "devices/http/vivotek.h"

#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "http_sim_server.h"
#include "support/ports.h"
#include "support/raised.h"
#include "support/test_clock.h"
#include "vivotek_sim.h"

namespace vmio {
namespace {

using namespace std::chrono_literals;
using sim::VivotekSim;
using sim::VivotekSimOptions;
using test::Names;
using test::Raised;
using test::Read;
using Log = std::vector<std::string>;

VivotekSimOptions Layout(int inputs, int outputs) {
  VivotekSimOptions o;
  o.inputs = inputs;
  o.outputs = outputs;
  return o;
}

TEST(Vivotek, CapabilityListGivesInputsThenOutputsQuotedOrNot) {
  Vivotek v;
  VivotekSim quoted(Layout(2, 1));
  quoted.Start();
  v.Connect(quoted.DeviceString());
  EXPECT_EQ(quoted.Server().RequestLog(), Log{"/cgi-bin/viewer/getparam.cgi?capability"});
  EXPECT_EQ(Names(v), (std::vector<std::string>{"Input 1/1", "Input 2/1", "Output 1/3"}));

  VivotekSimOptions bare = Layout(1, 2);
  bare.quoted_values = false;
  VivotekSim older(bare);
  older.Start();
  v.Connect(older.DeviceString());
  EXPECT_EQ(Names(v), (std::vector<std::string>{"Input 1/1", "Output 1/3", "Output 2/3"}));

  // Disconnect sends nothing and keeps the table; only the values need the device.
  v.Disconnect();
  EXPECT_EQ(v.PortName(2), "Output 2");
  EXPECT_EQ(v.PortDirection(2), IOBidirectional);
  EXPECT_EQ(older.Server().RequestCount(), 1);
}

TEST(Vivotek, CountsKeepTheirLastValueWhenTheListLacksThemOrNoTableCanTakeThem) {
  // Rows ending in LF alone are not rows here: the list names no count at all.
  VivotekSimOptions lf = Layout(4, 4);
  lf.line_end = "\n";
  VivotekSim unsplit(lf);
  unsplit.Start();

  Vivotek fresh;
  fresh.Connect(unsplit.DeviceString());
  EXPECT_EQ(fresh.Ports(), 0);

  VivotekSim device(Layout(2, 1));
  device.Start();
  Vivotek v;
  v.Connect(device.DeviceString());
  v.Connect(unsplit.DeviceString());
  EXPECT_EQ(Names(v), (std::vector<std::string>{"Input 1/1", "Input 2/1", "Output 1/3"}));

  // Counts no table can take fail the Connect, unconnected, with the last table and counts kept.
  std::mutex m;
  std::string capability;
  const auto answer = [&](std::string reply) {
    std::lock_guard lock(m);
    capability = std::move(reply);
  };
  sim::HttpSimServer odd([&](const sim::HttpRequestInfo& r) -> sim::HttpReply {
    std::lock_guard lock(m);
    if (r.path == "/cgi-bin/viewer/getparam.cgi") return {200, capability};
    return {200, "di0=1\r\ndi1=1\r\n"};
  });
  odd.Start();
  for (const auto& [reply, error] : std::vector<std::pair<std::string, std::string>>{
           {"capability_ndi=-1\r\ncapability_ndo=0\r\n", "9 Subscript out of range"},
           {"capability_ndi='2147483647'\r\n", "6 Overflow"},
           {"capability_ndi=70000\r\ncapability_ndo=0\r\n", "7 Out of memory"}}) {
    answer(reply);
    EXPECT_EQ(Raised([&] { v.Connect(odd.DeviceString()); }), error);
    EXPECT_EQ(v.PortName(2), "Output 1");
  }

  // Two ports from absurd counts: the read names no more inputs than the table holds.
  answer("capability_ndi=2000000000\r\ncapability_ndo=-1999999998\r\n");
  Vivotek absurd;
  absurd.Connect(odd.DeviceString());
  EXPECT_EQ(absurd.Ports(), 2);
  EXPECT_TRUE(absurd.PortValue(1).AsBool());
  EXPECT_EQ(odd.RequestLog().back(), "/cgi-bin/dido/getdi.cgi?di0&di1");
}

TEST(Vivotek, InputsAndOutputsAreReadInTwoGroupsCachedApart) {
  test::TestClock clock;
  VivotekSim device(Layout(3, 2));
  device.Start();
  device.Points().SetInput(2, true);
  device.Points().SetOutput(2, true);
  Vivotek v;
  v.Connect(device.DeviceString());
  device.Server().ClearLog();

  EXPECT_FALSE(Read(v, 0));
  EXPECT_TRUE(Read(v, 1));
  EXPECT_FALSE(Read(v, 2));
  EXPECT_EQ(device.Server().RequestLog(), Log{"/cgi-bin/dido/getdi.cgi?di0&di1&di2"});
  EXPECT_FALSE(Read(v, 3));
  EXPECT_TRUE(Read(v, 4));
  EXPECT_FALSE(Read(v, 0));
  EXPECT_EQ(device.Server().RequestLog(),
            (Log{"/cgi-bin/dido/getdi.cgi?di0&di1&di2", "/cgi-bin/dido/getdo.cgi?do0&do1"}));

  // A change at the device shows once the group's 500 ms have passed.
  device.Points().SetInput(1, true);
  EXPECT_FALSE(Read(v, 0));
  clock.Advance(600ms);
  EXPECT_TRUE(Read(v, 0));
  EXPECT_EQ(device.Server().RequestCount("/cgi-bin/dido/getdi.cgi"), 2);
  EXPECT_EQ(device.Server().RequestCount("/cgi-bin/dido/getdo.cgi"), 1);
  EXPECT_EQ(device.Server().ConnectionCount(), 1);  // every request on the connection of Connect
}

TEST(Vivotek, OnlyAStateOfExactlyOneIsTrueAndRowsGoByTheirNumber) {
  sim::HttpSimServer device([](const sim::HttpRequestInfo& r) -> sim::HttpReply {
    if (r.path == "/cgi-bin/viewer/getparam.cgi") return {200, "capability_ndi=3\r\ncapability_ndo=0\r\n"};
    return {200, "di2=1\r\ndi0=2\r\ndi1=1.0\r\n"};
  });
  device.Start();
  Vivotek v;
  v.Connect(device.DeviceString());
  EXPECT_FALSE(Read(v, 0));
  EXPECT_TRUE(Read(v, 1));
  EXPECT_TRUE(Read(v, 2));
}

TEST(Vivotek, WritingAnOutputSendsSetdoAndKeepsTheState) {
  VivotekSim device(Layout(1, 2));
  device.Start();
  Vivotek v;
  v.Connect(device.DeviceString());
  EXPECT_FALSE(Read(v, 2));
  device.Server().ClearLog();

  v.PortValue(2, Variant(true));
  v.PortValue(1, Variant(false));
  EXPECT_EQ(device.Server().RequestLog(), (Log{"/cgi-bin/dido/setdo.cgi?do1=1", "/cgi-bin/dido/setdo.cgi?do0=0"}));
  EXPECT_TRUE(device.Points().Output(2));
  EXPECT_TRUE(Read(v, 2));  // from the cache: no getdo within 500 ms of the last
  EXPECT_EQ(device.Server().RequestCount(), 2);
}

}  // namespace
}  // namespace vmio
