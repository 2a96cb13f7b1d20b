#include "devices/http/acti.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "acti_sim.h"
#include "http_sim_server.h"
#include "support/ports.h"
#include "support/raised.h"
#include "support/test_clock.h"

namespace vmio {
namespace {

using namespace std::chrono_literals;
using sim::ACTiSim;
using sim::ACTiSimOptions;
using test::Names;
using test::Raised;
using test::Read;
using Log = std::vector<std::string>;

ACTiSimOptions Channels(int channels) {
  ACTiSimOptions o;
  o.channels = channels;
  return o;
}

TEST(ACTi, FirmwareVersionGivesFourPortsPerChannel) {
  ACTiSim one(Channels(1));
  one.Start();
  ACTi a;
  a.Connect(one.DeviceString());
  EXPECT_EQ(one.Server().RequestLog(), Log{"/cgi-bin/cmd/system?SYSTEM_INFO"});
  EXPECT_EQ(Names(a), (std::vector<std::string>{"Input 1/1", "Input 2/1", "Output 1/3", "Output 2/3"}));

  ACTiSim four(Channels(4));
  four.Start();
  a.Connect(four.DeviceString());
  const std::vector<std::string> names = Names(a);
  ASSERT_EQ(names.size(), 16u);
  EXPECT_EQ(names[0], "Channel 1 input 1/1");
  EXPECT_EQ(names[6], "Channel 2 output 1/3");
  EXPECT_EQ(names[15], "Channel 4 output 2/3");

  // Only the version's second character counts; a letter there means no channels.
  ACTiSimOptions odd = Channels(2);
  odd.firmware = "AXD-310-V3.12.15-AC";
  ACTiSim unknown(odd);
  unknown.Start();
  a.Connect(unknown.DeviceString());
  EXPECT_EQ(a.Ports(), 0);
}

TEST(ACTi, EachChannelIsReadWithItsOwnStatusRequestAndCache) {
  test::TestClock clock;
  ACTiSim device(Channels(2));
  device.Start();
  device.Points().SetInput(ACTiSim::PointNumber(1, 2), true);
  device.Points().SetOutput(ACTiSim::PointNumber(1, 2), true);
  device.Points().SetInput(ACTiSim::PointNumber(2, 1), true);
  ACTi a;
  a.Connect(device.DeviceString());
  device.Server().ClearLog();

  EXPECT_FALSE(Read(a, 0));
  EXPECT_TRUE(Read(a, 1));
  EXPECT_FALSE(Read(a, 2));
  EXPECT_TRUE(Read(a, 3));
  EXPECT_EQ(device.Server().RequestLog(), Log{"/cgi-bin/cmd/mpeg4?CHANNEL=1&DIO_STATUS"});
  EXPECT_TRUE(Read(a, 4));
  EXPECT_FALSE(Read(a, 7));
  EXPECT_EQ(device.Server().RequestLog(),
            (Log{"/cgi-bin/cmd/mpeg4?CHANNEL=1&DIO_STATUS", "/cgi-bin/cmd/mpeg4?CHANNEL=2&DIO_STATUS"}));

  device.Points().SetInput(ACTiSim::PointNumber(1, 1), true);
  EXPECT_FALSE(Read(a, 0));
  clock.Advance(600ms);
  EXPECT_TRUE(Read(a, 0));
  EXPECT_EQ(device.Server().RequestCount("/cgi-bin/cmd/mpeg4"), 3);
}

TEST(ACTi, StatusIsHexAfterThreeSkippedCharacters) {
  // One reply shape per channel of a four-channel device.
  sim::HttpSimServer device([](const sim::HttpRequestInfo& r) -> sim::HttpReply {
    if (r.path == "/cgi-bin/cmd/system") return {200, "Firmware Version=A4D\n"};
    if (r.query == "CHANNEL=1&DIO_STATUS") return {200, "DIO_STATUS='0x32'\n"};
    if (r.query == "CHANNEL=2&DIO_STATUS") return {200, "DIO_STATUS=0x31\n"};  // reads as 0x1
    if (r.query == "CHANNEL=3&DIO_STATUS") return {200, "dio_status='0x33'\nDIO_STATUS='0x'\n"};
    return {200, "DIO_OUTPUT='0x03'\n"};
  });
  device.Start();
  ACTi a;
  a.Connect(device.DeviceString());
  std::string states;
  for (int32_t i = 0; i < 16; ++i) states += Read(a, i) ? '1' : '0';
  EXPECT_EQ(states,
            "0111"
            "1000"
            "0000"
            "0000");
}

TEST(ACTi, WritingAnOutputSetsBothOutputsOfItsChannel) {
  ACTiSim single(Channels(1));
  single.Start();
  ACTi a;
  a.Connect(single.DeviceString());
  single.Server().ClearLog();
  a.PortValue(2, Variant(true));
  a.PortValue(3, Variant(true));
  a.PortValue(2, Variant(false));
  EXPECT_EQ(single.Server().RequestLog(),
            (Log{"/cgi-bin/cmd/mpeg4?DIO_OUTPUT=0x01", "/cgi-bin/cmd/mpeg4?DIO_OUTPUT=0x03",
                 "/cgi-bin/cmd/mpeg4?DIO_OUTPUT=0x02"}));
  EXPECT_FALSE(single.Points().Output(ACTiSim::PointNumber(1, 1)));
  EXPECT_TRUE(single.Points().Output(ACTiSim::PointNumber(1, 2)));

  ACTiSim dual(Channels(2));
  dual.Start();
  a.Connect(dual.DeviceString());
  dual.Server().ClearLog();
  a.PortValue(7, Variant(true));
  EXPECT_EQ(dual.Server().RequestLog(), Log{"/cgi-bin/cmd/mpeg4?CHANNEL=2&DIO_OUTPUT=0x02"});
  EXPECT_TRUE(dual.Points().Output(ACTiSim::PointNumber(2, 2)));
  EXPECT_FALSE(dual.Points().Output(ACTiSim::PointNumber(1, 2)));
}

TEST(ACTi, RefusalsAndFailedRequestsRaiseConnectionAndValueErrors) {
  ACTiSimOptions refusing = Channels(1);
  refusing.refuse = true;
  refusing.auth = {sim::AuthScheme::Basic, "Admin", "123456"};
  ACTiSim device(refusing);
  device.Start();

  ACTi a;
  EXPECT_EQ(Raised([&] { a.Connect(device.DeviceString()); }), "45001 Unable to connect to the device");
  device.SetRefusing(false);
  EXPECT_EQ(Raised([&] { a.Connect("Admin:wrong@" + device.Server().Authority()); }),
            "45001 Unable to connect to the device");
  a.Connect(device.DeviceString());
  EXPECT_FALSE(Read(a, 2));

  // A refused write (an error page, not a lost connection) fails like a lost one.
  device.SetRefusing(true);
  EXPECT_EQ(Raised([&] { a.PortValue(2, Variant(true)); }), "45005 Unable to connect to the device");
  EXPECT_FALSE(device.Points().Output(ACTiSim::PointNumber(1, 1)));
}

}  // namespace
}  // namespace vmio
