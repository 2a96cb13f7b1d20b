#include "devices/http/genie.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "genie_sim.h"
#include "http_sim_server.h"
#include "support/ports.h"
#include "support/raised.h"

namespace vmio {
namespace {

using namespace std::chrono_literals;
using sim::GenieSim;
using sim::GenieSimOptions;
using test::Raised;
using test::Read;
using test::States;

constexpr char kStatesRequest[] =
    "/httpapi/GetState?action=getinput&GIS_SENSOR1=0&GIS_SENSOR2=0&GIS_ALARM1=0&GIS_ALARM2=0&GIS_BUZZER=0";

// A running default device with a driver connected to it.
class ConnectedGenie : public ::testing::Test {
 protected:
  ConnectedGenie() {
    device.Start();
    genie.Connect(device.DeviceString());
  }
  GenieSim device;
  Genie genie;
};

TEST(Genie, HasTheFixedFivePortLayoutWhateverTheDeviceAnswers) {
  GenieSim device;
  device.Start();
  Genie genie;
  EXPECT_EQ(Raised([&] { genie.PortDirection(0); }), "9 Subscript out of range");
  EXPECT_EQ(Raised([&] { genie.PortName(0); }), "9 Subscript out of range");

  genie.Connect(device.DeviceString());
  EXPECT_EQ(device.Server().RequestLog(), std::vector<std::string>{"/httpapi/GetState?action=getinput"});
  EXPECT_EQ(genie.Ports(), 5);
  const std::vector<std::string> names = {"Sensor 1", "Sensor 2", "Alarm 1", "Alarm 2", "Buzzer"};
  const std::vector<int32_t> directions = {IOInput, IOInput, IOBidirectional, IOBidirectional, IOBidirectional};
  for (int32_t i = 0; i < 5; ++i) {
    EXPECT_EQ(genie.PortName(i), names[static_cast<size_t>(i)]);
    EXPECT_EQ(genie.PortDirection(i), directions[static_cast<size_t>(i)]);
    EXPECT_EQ(genie.PortType(i), vtBool);
  }
  for (int32_t bad : {-1, 5}) {
    EXPECT_EQ(Raised([&] { genie.PortDirection(bad); }), "9 Subscript out of range");
    EXPECT_EQ(Raised([&] { genie.PortType(bad); }), "9 Subscript out of range");
    EXPECT_EQ(Raised([&] { genie.PortName(bad); }), "9 Subscript out of range");
  }
  // The index is checked after the states are read, as the read comes first.
  EXPECT_EQ(Raised([&] { genie.PortValue(5); }), "9 Subscript out of range");

  genie.Disconnect();
  const int requests = device.Server().RequestCount();
  EXPECT_EQ(genie.PortDirection(4), IOBidirectional);
  EXPECT_EQ(genie.PortName(4), "Buzzer");
  EXPECT_EQ(device.Server().RequestCount(), requests);
}

TEST(Genie, ReadsStatesByExactKeyAndOnlyTheValueOneIsOn) {
  // Rows of other keys, or of the right key in another case, must not touch the ports.
  GenieSimOptions options;
  options.extra_lines = "gis_sensor2=1\nGIS_BUZZER =1\nOTHER=1\nno separator\n";
  GenieSim device(options);
  device.Start();
  device.Points().Set("GIS_SENSOR1", 1);
  device.Points().Set("GIS_ALARM1", 2);
  device.Points().Set("GIS_ALARM2", 1);
  Genie genie;
  genie.Connect(device.DeviceString());
  EXPECT_EQ(States(genie), (std::vector<bool>{true, false, false, true, false}));  // ALARM1's 2 is not 1
  EXPECT_EQ(device.Server().RequestLog().back(), kStatesRequest);

  // Firmware that ends its lines with CR LF reads the same.
  GenieSimOptions crlf;
  crlf.line_end = "\r\n";
  GenieSim crlf_device(crlf);
  crlf_device.Start();
  crlf_device.Points().Set("GIS_SENSOR2", 1);
  crlf_device.Points().Set("GIS_BUZZER", 1);
  Genie crlf_genie;
  crlf_genie.Connect(crlf_device.DeviceString());
  EXPECT_EQ(States(crlf_genie), (std::vector<bool>{false, true, false, false, true}));
}

TEST_F(ConnectedGenie, WritesSendOneSetStatePerOutputAndUpdateTheCache) {
  EXPECT_FALSE(Read(genie, 4));  // the cache is fresh from here on
  device.Server().ClearLog();

  genie.PortValue(2, Variant(true));
  genie.PortValue(3, Variant(true));
  genie.PortValue(4, Variant(true));
  genie.PortValue(3, Variant(false));
  EXPECT_EQ(device.Server().RequestLog(), (std::vector<std::string>{
                                              "/httpapi/SetState?action=setoutput&OUT_ALARM1=1",
                                              "/httpapi/SetState?action=setoutput&OUT_ALARM2=1",
                                              "/httpapi/SetState?action=setoutput&OUT_BUZZER=1",
                                              "/httpapi/SetState?action=setoutput&OUT_ALARM2=0",
                                          }));
  EXPECT_EQ(device.Points().Get("GIS_ALARM1"), 1);
  EXPECT_EQ(device.Points().Get("GIS_ALARM2"), 0);
  EXPECT_EQ(device.Points().Get("GIS_BUZZER"), 1);
  // Read back from the cache the writes filled, without asking the device.
  EXPECT_TRUE(Read(genie, 2));
  EXPECT_TRUE(Read(genie, 4));
  EXPECT_EQ(device.Server().RequestCount("/httpapi/GetState"), 0);
}

TEST(Genie, UnreachableOrRefusingDevicesRaiseTheFixedErrors) {
  GenieSimOptions guarded;
  guarded.auth = {sim::AuthScheme::Digest, "admin", "secret"};
  GenieSim device(guarded);
  device.Start();
  Genie genie;
  EXPECT_EQ(Raised([&] { genie.Connect("admin:wrong@" + device.Server().Authority()); }),
            "45001 Unable to connect to the device");

  genie.Connect(device.DeviceString());
  EXPECT_EQ(genie.Ports(), 5);
  genie.PortValue(2, Variant(true));
  EXPECT_TRUE(Read(genie, 2));  // read back from the device; the cache is fresh now

  device.Server().Stop();
  EXPECT_EQ(Raised([&] { genie.PortValue(2, Variant(false)); }), "45005 Unable to connect to the device");
  EXPECT_TRUE(Read(genie, 2));  // the failed write left the cache alone
  std::this_thread::sleep_for(600ms);
  EXPECT_EQ(Raised([&] { genie.PortValue(0); }), "45005 Unable to connect to the device");
  EXPECT_EQ(Raised([&] { genie.Connect(device.Server().Authority()); }), "45001 Unable to connect to the device");
}

}  // namespace
}  // namespace vmio
