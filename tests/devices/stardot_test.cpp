#include "devices/http/stardot.h"

#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "http_sim_server.h"
#include "stardot_sim.h"
#include "support/ports.h"
#include "support/raised.h"
#include "support/test_clock.h"

namespace vmio {
namespace {

using namespace std::chrono_literals;
using sim::StarDotSim;
using sim::StarDotSimOptions;
using test::Names;
using test::Raised;
using test::Read;
using test::States;
using Log = std::vector<std::string>;

StarDotSimOptions Layout(bool relay, int inputs) {
  StarDotSimOptions o;
  o.relay = relay;
  o.inputs = inputs;
  return o;
}

// A camera whose replies the test writes; the /io.cgi reply can change while it runs.
class ScriptedCamera {
 public:
  explicit ScriptedCamera(std::string info, std::string io = {}) : info_(std::move(info)), io_(std::move(io)) {
    server_.Start();
  }
  void SetIo(std::string io) {
    std::lock_guard lock(mutex_);
    io_ = std::move(io);
  }
  std::string DeviceString() const { return server_.DeviceString(); }

 private:
  sim::HttpReply Handle(const sim::HttpRequestInfo& r) {
    std::lock_guard lock(mutex_);
    return {200, r.path == "/info.cgi" ? info_ : io_};
  }
  std::mutex mutex_;
  std::string info_, io_;
  sim::HttpSimServer server_{[this](const sim::HttpRequestInfo& r) { return Handle(r); }};
};

TEST(StarDot, InfoGivesAnOptionalRelayAndInputsAllNamedInput) {
  StarDot s;
  StarDotSim relay(Layout(true, 2));
  relay.Start();
  s.Connect(relay.DeviceString());
  EXPECT_EQ(relay.Server().RequestLog(), Log{"/info.cgi"});
  EXPECT_EQ(Names(s), (std::vector<std::string>{"Relay/3", "Input/1", "Input/1"}));

  StarDotSim none(Layout(false, 3));
  none.Start();
  s.Connect(none.DeviceString());
  EXPECT_EQ(Names(s), (std::vector<std::string>{"Input/1", "Input/1", "Input/1"}));

  // Keys match whatever their case and surrounding blanks; any relay count but 0 is one relay.
  ScriptedCamera odd(" Relay =5\nEXTERNAL_INPUTS = 1\nmodel=x\n");
  s.Connect(odd.DeviceString());
  EXPECT_EQ(Names(s), (std::vector<std::string>{"Relay/3", "Input/1"}));

  // An input count no table can take fails the Connect and leaves the last table whole.
  ScriptedCamera negative("relay=1\nexternal_inputs=-3\n");
  EXPECT_EQ(Raised([&] { s.Connect(negative.DeviceString()); }), "9 Subscript out of range");
  ScriptedCamera huge("external_inputs=2147483647\n");
  EXPECT_EQ(Raised([&] { s.Connect(huge.DeviceString()); }), "6 Overflow");
  EXPECT_EQ(s.PortName(1), "Input");
  s.Connect(odd.DeviceString());

  s.Disconnect();
  EXPECT_EQ(s.PortName(0), "Relay");
}

TEST(StarDot, OneIoRequestServesEveryPortButOnlyOneInputIsEverRead) {
  test::TestClock clock;
  StarDotSim device(Layout(true, 2));
  device.Start();
  device.Points().SetOutput(1, true);
  device.Points().SetInput(1, true);
  device.Points().SetInput(2, true);
  StarDot s;
  s.Connect(device.DeviceString());
  device.Server().ClearLog();
  EXPECT_EQ(States(s), (std::vector<bool>{true, true, false}));  // the second input is never read
  EXPECT_EQ(device.Server().RequestLog(), Log{"/io.cgi"});

  device.Points().SetInput(1, false);
  EXPECT_TRUE(Read(s, 1));
  clock.Advance(600ms);
  EXPECT_FALSE(Read(s, 1));
  EXPECT_EQ(device.Server().RequestCount("/io.cgi"), 2);

  // Without a relay the "io" row goes to the third input, and nowhere when there is none.
  StarDotSim three(Layout(false, 3));
  three.Start();
  three.Points().SetInput(1, true);
  StarDot t;
  t.Connect(three.DeviceString());
  EXPECT_EQ(States(t), (std::vector<bool>{false, false, true}));

  ScriptedCamera two("relay=0\nexternal_inputs=2\n", "io=1\nIO=1\n");
  StarDot u;
  u.Connect(two.DeviceString());
  EXPECT_EQ(States(u), (std::vector<bool>{false, false}));
}

TEST(StarDot, IoKeysMatchAnyCaseButNotWithBlanks) {
  test::TestClock clock;
  ScriptedCamera camera("relay=1\nexternal_inputs=1\n", "RELAY=1\n io=1\n");
  StarDot s;
  s.Connect(camera.DeviceString());
  EXPECT_EQ(States(s), (std::vector<bool>{true, false}));
  camera.SetIo("Relay=2\nIo=1\n");
  clock.Advance(600ms);
  EXPECT_EQ(States(s), (std::vector<bool>{false, true}));  // only exactly 1 is on
}

TEST(StarDot, SwitchingTheRelaySendsItsStateUnnumbered) {
  StarDotSim device(Layout(true, 1));
  device.Start();
  StarDot s;
  s.Connect(device.DeviceString());
  device.Server().ClearLog();
  s.PortValue(0, Variant(true));
  EXPECT_TRUE(device.Points().Output(1));
  EXPECT_TRUE(Read(s, 0));
  s.PortValue(0, Variant(false));
  EXPECT_FALSE(device.Points().Output(1));
  EXPECT_EQ(device.Server().RequestLog(), (Log{"/io.cgi?relay=1", "/io.cgi", "/io.cgi?relay=0"}));
}

TEST(StarDot, RepliesAreNeverJudged) {
  StarDotSimOptions guarded = Layout(true, 1);
  guarded.auth = {sim::AuthScheme::Basic, "admin", "admin"};
  StarDotSim device(guarded);
  device.Start();

  // The 401 page is read as it stands: connected, with no ports.
  StarDot s;
  s.Connect("admin:wrong@" + device.Server().Authority());
  EXPECT_EQ(s.Ports(), 0);

  s.Connect(device.DeviceString());
  EXPECT_EQ(s.Ports(), 2);
}

}  // namespace
}  // namespace vmio
