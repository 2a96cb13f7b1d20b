#include "devices/http/axis.h"

#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "axis_sim.h"
#include "http_sim_server.h"
#include "support/ports.h"
#include "support/raised.h"
#include "support/test_clock.h"

namespace vmio {
namespace {

using namespace std::chrono_literals;
using sim::AxisSim;
using sim::AxisSimOptions;
using test::Directions;
using test::Raised;
using test::Read;
using test::States;

AxisSimOptions OlderFirmware(int inputs, int outputs) {
  AxisSimOptions o;
  o.inputs = inputs;
  o.outputs = outputs;
  o.ioport_group = false;
  return o;
}

AxisSimOptions NewerFirmware(std::string layout) {
  AxisSimOptions o;
  o.port_layout = std::move(layout);
  return o;
}

TEST(Axis, OlderFirmwareListsInputsThenReadBackOutputs) {
  AxisSimOptions o = OlderFirmware(4, 2);
  o.input_names = {{1, "Front door"}};
  o.output_names = {{2, "Siren"}};
  AxisSim device(o);
  device.Start();
  Axis axis;
  axis.Connect(device.DeviceString());

  EXPECT_EQ(device.Server().RequestLog(),
            (std::vector<std::string>{"/axis-cgi/view/param.cgi?action=list&group=Input,Output",
                                      "/axis-cgi/view/param.cgi?action=list&group=IOPort"}));
  EXPECT_EQ(Directions(axis), (std::vector<int32_t>{1, 1, 1, 1, 3, 3}));
  device.Server().ClearLog();
  EXPECT_EQ(axis.PortName(0), "Front door");
  EXPECT_EQ(axis.PortName(5), "Siren");
  EXPECT_EQ(device.Server().RequestLog(),
            (std::vector<std::string>{"/axis-cgi/operator/param.cgi?action=list&group=Input.I0.Name",
                                      "/axis-cgi/operator/param.cgi?action=list&group=Output.O1.Name"}));
  EXPECT_EQ(Raised([&] { axis.PortName(6); }), "9 Subscript out of range");
}

TEST(Axis, NewerFirmwareTakesEachDirectionFromTheIOPortGroup) {
  AxisSimOptions o = NewerFirmware("ioii");
  o.input_names = {{1, "Motion"}};
  o.output_names = {{1, "Door"}};
  AxisSim device(o);
  device.Start();
  Axis axis;
  axis.Connect(device.DeviceString());

  EXPECT_EQ(Directions(axis), (std::vector<int32_t>{1, 3, 1, 1}));
  device.Server().ClearLog();
  EXPECT_EQ(axis.PortName(0), "Motion");
  EXPECT_EQ(axis.PortName(1), "Door");
  EXPECT_EQ(device.Server().RequestLog(),
            (std::vector<std::string>{"/axis-cgi/operator/param.cgi?action=list&group=IOPort.I0.Input.Name",
                                      "/axis-cgi/operator/param.cgi?action=list&group=IOPort.I1.Output.Name"}));
}

TEST(Axis, NamesFallBackWhenTheDeviceRefusesThem) {
  AxisSimOptions older = OlderFirmware(4, 2);
  older.viewer_only = true;
  AxisSim old_device(older);
  old_device.Start();
  Axis axis;
  axis.Connect(old_device.DeviceString());
  EXPECT_EQ(axis.PortName(0), "Input 1");
  EXPECT_EQ(axis.PortName(5), "Output 2");  // counted among the outputs

  AxisSimOptions newer = NewerFirmware("iiiioo");
  newer.viewer_only = true;
  AxisSim new_device(newer);
  new_device.Start();
  axis.Connect(new_device.DeviceString());
  EXPECT_EQ(axis.PortName(0), "Input 1");
  EXPECT_EQ(axis.PortName(5), "Output 6");  // counted among all ports

  // With the address gone, a name can only be the fall-back, and nothing reaches the device.
  new_device.Server().ClearLog();
  axis.Disconnect();
  EXPECT_EQ(axis.PortName(4), "Output 5");
  EXPECT_TRUE(new_device.Server().RequestLog().empty());
}

TEST(Axis, EachKindOfReadIsCachedForHalfASecond) {
  test::TestClock clock;
  AxisSim device(OlderFirmware(4, 2));
  device.Start();
  device.Points().SetInput(2, true);
  Axis axis;
  axis.Connect(device.DeviceString());
  auto& server = device.Server();
  server.ClearLog();

  EXPECT_TRUE(Read(axis, 1));
  EXPECT_EQ(server.RequestLog(), (std::vector<std::string>{"/axis-cgi/io/input.cgi?check=1,2,3,4"}));
  clock.Advance(100ms);
  device.Points().SetInput(2, false);
  EXPECT_TRUE(Read(axis, 1));  // still the cached state
  EXPECT_FALSE(Read(axis, 3));
  EXPECT_EQ(server.RequestCount("/axis-cgi/io/input.cgi"), 1);

  // Outputs have their own cache and their own CGI.
  EXPECT_FALSE(Read(axis, 4));
  EXPECT_FALSE(Read(axis, 5));
  EXPECT_EQ(server.RequestLog().back(), "/axis-cgi/io/output.cgi?check=1,2");
  EXPECT_EQ(server.RequestCount("/axis-cgi/io/output.cgi"), 1);

  // A reconnect rebuilds the table (all false) but keeps the cache clock: no request yet.
  device.Points().SetInput(2, true);
  axis.Disconnect();
  axis.Connect(device.DeviceString());
  EXPECT_FALSE(Read(axis, 1));
  EXPECT_EQ(server.RequestCount("/axis-cgi/io/input.cgi"), 1);

  clock.Advance(600ms);
  EXPECT_TRUE(Read(axis, 1));
  EXPECT_EQ(server.RequestCount("/axis-cgi/io/input.cgi"), 2);
  EXPECT_EQ(server.RequestCount("/axis-cgi/io/output.cgi"), 1);
}

TEST(Axis, NewerFirmwareReadsEveryPortInOneRequest) {
  AxisSim device(NewerFirmware("iiioo"));
  device.Start();
  Axis axis;
  axis.Connect(device.DeviceString());
  device.Points().SetInput(3, true);
  axis.PortValue(4, Variant(true));
  device.Server().ClearLog();

  EXPECT_EQ(States(axis), (std::vector<bool>{false, false, true, false, true}));
  EXPECT_EQ(device.Server().RequestLog(), (std::vector<std::string>{"/axis-cgi/io/port.cgi?check=1,2,3,4,5"}));
}

TEST(Axis, WritesSwitchTheOutputByItsDeviceNumber) {
  AxisSim older(OlderFirmware(4, 2));
  older.Start();
  Axis axis;
  axis.Connect(older.DeviceString());
  EXPECT_FALSE(Read(axis, 5));  // starts the output cache

  axis.PortValue(5, Variant(true));
  EXPECT_EQ(older.Server().RequestLog().back(), "/axis-cgi/io/output.cgi?action=2:/");
  EXPECT_TRUE(older.Points().Output(2));
  EXPECT_FALSE(older.Points().Output(1));
  // The write does not restart the cache: the table answers with the state just written.
  EXPECT_TRUE(Read(axis, 5));
  EXPECT_EQ(older.Server().RequestCount("/axis-cgi/io/output.cgi"), 2);

  axis.PortValue(5, Variant(false));
  EXPECT_EQ(older.Server().RequestLog().back(), "/axis-cgi/io/output.cgi?action=2:\\");
  EXPECT_FALSE(older.Points().Output(2));

  AxisSim newer(NewerFirmware("iiiioo"));
  newer.Start();
  axis.Connect(newer.DeviceString());
  axis.PortValue(4, Variant(true));
  EXPECT_EQ(newer.Server().RequestLog().back(), "/axis-cgi/io/port.cgi?action=5:/");
  EXPECT_TRUE(newer.Points().Output(1));
}

TEST(Axis, RefusedInputOutputGroupConnectsWithThePreviousTable) {
  AxisSimOptions refusing = OlderFirmware(4, 2);
  refusing.refuse_input_output_groups = true;
  AxisSim device(refusing);
  device.Start();

  Axis fresh;
  fresh.Connect(device.DeviceString());
  EXPECT_EQ(fresh.Ports(), 0);
  EXPECT_EQ(device.Server().RequestCount(), 1);  // no IOPort query follows

  AxisSim normal(OlderFirmware(2, 1));
  normal.Start();
  Axis reused;
  reused.Connect(normal.DeviceString());
  reused.Connect(device.DeviceString());
  EXPECT_EQ(reused.Ports(), 3);
  EXPECT_EQ(reused.PortDirection(2), IOBidirectional);
}

TEST(Axis, FailedIOPortQueryLeavesTheObjectUnconnected) {
  AxisSimOptions o = OlderFirmware(4, 2);
  o.fail_ioport_query = true;
  AxisSim device(o);
  device.Start();
  Axis axis;
  EXPECT_EQ(Raised([&] { axis.Connect(device.DeviceString()); }), "45001 Unable to get the device port info");
}

// Credentials travel in the device string. Switching off ends the request target in "\",
// which the Digest response must cover too.
TEST(Axis, DigestDeviceSwitchesAnOutputOnAndOff) {
  AxisSimOptions o = OlderFirmware(1, 1);
  o.auth = {sim::AuthScheme::Digest, "root", "pass"};
  AxisSim device(o);
  device.Start();
  Axis axis;
  EXPECT_EQ(Raised([&] { axis.Connect("root:wrong@" + device.Server().Authority()); }),
            "45001 Unable to connect to the device");
  axis.Connect(device.DeviceString());
  axis.PortValue(1, Variant(true));
  EXPECT_TRUE(device.Points().Output(1));
  EXPECT_EQ(Raised([&] { axis.PortValue(1, Variant(false)); }), "none");
  EXPECT_FALSE(device.Points().Output(1));
}

// Replies a real device would not send, from a hand-written server.
TEST(Axis, ReadsOddRepliesAsTheDeviceWrote) {
  std::mutex m;
  std::string counts = "root.Input.NbrOfInputs=2.5\nroot.Output.NbrOfOutputs=1.5 outputs\n";
  std::string states = "port3=1\nport0=1\nportx=1\nport1=\nport4=1\n";
  std::string ioport =
      "root.IOPort.I1.Direction=output\nroot.IOPort.I2.Output.Name=Door\n"
      "root.IOPort.I0.Direction=input\nroot.IOPort.I3.Direction=out\n";
  sim::HttpSimServer server([&](const sim::HttpRequestInfo& r) -> sim::HttpReply {
    std::lock_guard lock(m);
    if (r.query.ends_with("group=Input,Output")) return {200, counts};
    if (r.query.ends_with("group=IOPort")) return {200, ioport};
    if (r.path == "/axis-cgi/io/port.cgi" || r.path == "/axis-cgi/io/input.cgi") return {200, states};
    return {404, "Not Found"};
  });
  server.Start();

  Axis axis;
  axis.Connect(server.DeviceString());
  // 2.5 and 1.5 both round to 2; port 2 is not described and keeps direction 0.
  EXPECT_EQ(Directions(axis), (std::vector<int32_t>{1, 3, 0, 3}));
  EXPECT_EQ((std::vector<bool>{Read(axis, 0), Read(axis, 1), Read(axis, 2), Read(axis, 3)}),
            (std::vector<bool>{false, false, true, true}));

  {
    std::lock_guard lock(m);
    counts = "root.Input.NbrOfInputs=3\n";  // no output count: the previous one stays
    states = "port9=1\n";
  }
  axis.Connect(server.DeviceString());
  EXPECT_EQ(axis.Ports(), 5);
  {
    std::lock_guard lock(m);
    counts = "root.Input.NbrOfInputs=2\nroot.Output.NbrOfOutputs=2\n";
  }
  Axis other;  // a fresh cache clock
  other.Connect(server.DeviceString());
  EXPECT_EQ(Raised([&] { other.PortValue(0); }), "9 Subscript out of range");

  // Counts no table can take fail the Connect and leave the object unconnected.
  {
    std::lock_guard lock(m);
    counts = "root.Input.NbrOfInputs=-5\n";
  }
  EXPECT_EQ(Raised([&] { other.Connect(server.DeviceString()); }), "9 Subscript out of range");
  EXPECT_EQ(other.PortDirection(3), IOBidirectional);  // the last table stands

  // Two ports from absurd counts: the input check lists no more numbers than the table holds.
  {
    std::lock_guard lock(m);
    counts = "root.Input.NbrOfInputs=2000000000\nroot.Output.NbrOfOutputs=-1999999998\n";
    ioport = "# Error: Error -1 getting param in group 'IOPort'\n";
    states = "input2=1\n";
  }
  Axis absurd;
  absurd.Connect(server.DeviceString());
  EXPECT_EQ(absurd.Ports(), 2);
  EXPECT_TRUE(Read(absurd, 1));
  EXPECT_EQ(server.RequestLog().back(), "/axis-cgi/io/input.cgi?check=1,2");
}

}  // namespace
}  // namespace vmio
