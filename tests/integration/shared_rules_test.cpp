// What every Boolean-port driver shares, checked once on each driver against its simulator:
// the port-table and write rules, the 500 ms state cache, what a failed Connect leaves behind,
// and a device that stops answering. The behaviour lives once in the shared port table, cache
// and request routine: a regression there shows up here for every make at once.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <type_traits>
#include <vector>

#include "acti_sim.h"
#include "adam_sim.h"
#include "aviosys_sim.h"
#include "axis_sim.h"
#include "devices/adam/adam.h"
#include "devices/http/acti.h"
#include "devices/http/aviosys_pdu.h"
#include "devices/http/axis.h"
#include "devices/http/genie.h"
#include "devices/http/stardot.h"
#include "devices/http/vivotek.h"
#include "genie_sim.h"
#include "http_sim_server.h"
#include "stardot_sim.h"
#include "support/raised.h"
#include "support/test_clock.h"
#include "vivotek_sim.h"
#include "vmio/objects.h"
#include "vmio/trace.h"

namespace vmio {
namespace {

static_assert(std::is_base_of_v<HttpDevice, Axis> && std::is_base_of_v<HttpDevice, Vivotek> &&
              std::is_base_of_v<HttpDevice, ACTi> && std::is_base_of_v<HttpDevice, StarDot> &&
              std::is_base_of_v<HttpDevice, Genie> && std::is_base_of_v<HttpDevice, AviosysPDU>);
static_assert(std::is_base_of_v<PortTableDevice, ADAM>);

using namespace std::chrono_literals;
using test::Raised;

constexpr char kUnableToConnect[] = "45001 Unable to connect to the device";

// A driver and the simulated device it talks to.
struct Rig {
  std::shared_ptr<void> device_keeper;
  std::shared_ptr<IODevice> driver;
  std::string device;
  sim::HttpSimServer* server = nullptr;  // HTTP makes only
  std::function<int()> requests;         // requests the device has received
};

struct Make {
  std::string name;
  std::function<Rig()> start;
  std::string unreachable;  // what Connect raises when nothing listens
  // A first reply that reports a port count below zero; empty when the make reports none.
  std::string negative_count_reply;
  // What a read raises when the device holds it past the receive time-out; empty: not HTTP.
  std::string silent_read = "45005 Unable to connect to the device";
  bool directions_after_disconnect = true;  // one make checks the connection first
  bool failed_write_is_cached = false;      // the make stores the new state before sending it
};

void PrintTo(const Make& make, std::ostream* os) { *os << make.name; }

template <class Sim, class Options>
Rig StartHttp(const char* progid, Options options = {}) {
  auto sim = std::make_shared<Sim>(std::move(options));
  sim->Start();
  Rig rig;
  rig.device = sim->DeviceString();
  rig.server = &sim->Server();
  rig.requests = [server = rig.server] { return server->RequestCount(); };
  rig.device_keeper = sim;
  rig.driver = std::dynamic_pointer_cast<IODevice>(CreateObject(progid));
  return rig;
}

std::vector<Make> Makes() {
  std::vector<Make> makes;
  makes.push_back({"Axis", [] { return StartHttp<sim::AxisSim, sim::AxisSimOptions>("VMIO.Axis"); }, kUnableToConnect,
                   "root.Input.NbrOfInputs=-5\n"});
  makes.push_back({"Vivotek", [] { return StartHttp<sim::VivotekSim, sim::VivotekSimOptions>("VMIO.Vivotek"); },
                   kUnableToConnect, "capability_ndi='-5'\r\n"});
  makes.push_back({"ACTi", [] { return StartHttp<sim::ACTiSim, sim::ACTiSimOptions>("VMIO.ACTi"); }, kUnableToConnect,
                   "", "45005 Unable to connect to the device", true, true});
  makes.push_back({"StarDot", [] { return StartHttp<sim::StarDotSim, sim::StarDotSimOptions>("VMIO.StarDot"); },
                   "13104 Failed to connect to the HTTP server.", "external_inputs=-5\n",
                   "13104 Failed to connect to the HTTP server.", true, true});
  makes.push_back(
      {"Genie", [] { return StartHttp<sim::GenieSim, sim::GenieSimOptions>("VMIO.Genie"); }, kUnableToConnect, ""});
  makes.push_back({"AviosysPDU",
                   [] {
                     sim::AviosysSimOptions options;
                     options.fixed_model = true;  // the model with inputs
                     return StartHttp<sim::AviosysSim>("VMIO.AviosysPDU", options);
                   },
                   kUnableToConnect, "-5", "45005 Unable to connect to the device", false});
  makes.push_back({"ADAM",
                   [] {
                     auto sim = std::make_shared<sim::AdamSim>();
                     sim->Start();
                     Rig rig;
                     rig.device = sim->DeviceString();
                     rig.requests = [s = sim.get()] { return s->RequestCount(); };
                     rig.driver = std::make_shared<ADAM>(static_cast<uint16_t>(sim->UdpPort()));
                     rig.device_keeper = sim;
                     return rig;
                   },
                   "45001 Connection failed", "", ""});
  return makes;
}

class SharedRules : public testing::TestWithParam<Make> {};

TEST_P(SharedRules, PortTableAndWriteRules) {
  const Rig rig = GetParam().start();
  IODevice& d = *rig.driver;

  EXPECT_EQ(Raised([&] { d.Ports(); }), "45003 Not connected");
  EXPECT_EQ(Raised([&] { d.PortValue(0); }), "45003 Not connected");
  EXPECT_EQ(Raised([&] { d.PortValue(0, Variant(true)); }), "45003 Not connected");

  d.Connect(rig.device);
  const int32_t ports = d.Ports();
  ASSERT_GT(ports, 0);
  for (const int32_t bad : {-1, ports}) {
    EXPECT_EQ(Raised([&] { d.PortDirection(bad); }), "9 Subscript out of range");
    EXPECT_EQ(Raised([&] { d.PortType(bad); }), "9 Subscript out of range");
    EXPECT_EQ(Raised([&] { d.PortName(bad); }), "9 Subscript out of range");
    EXPECT_EQ(Raised([&] { d.PortValue(bad); }), "9 Subscript out of range");
  }

  int32_t input = -1, output = -1;
  for (int32_t i = 0; i < ports; ++i) {
    EXPECT_EQ(d.PortType(i), vtBool);
    const int32_t direction = d.PortDirection(i);
    if (direction == IOInput && input < 0) input = i;
    if (direction == IOBidirectional && output < 0) output = i;
    EXPECT_TRUE(d.PortValue(i).IsBool());
  }
  ASSERT_GE(input, 0);
  ASSERT_GE(output, 0);

  // Refused writes send nothing.
  const int before_refusals = rig.requests();
  EXPECT_EQ(Raised([&] { d.PortValue(input, Variant(true)); }),
            "45004 Port " + std::to_string(input + 1) + "is not an output port");
  EXPECT_EQ(Raised([&] { d.PortValue(output, Variant(int32_t{1})); }), "13 Type mismatch");
  EXPECT_EQ(Raised([&] { d.PortValue(output, Variant("True")); }), "13 Type mismatch");
  EXPECT_EQ(rig.requests(), before_refusals);

  const bool before = d.PortValue(output).AsBool();
  EXPECT_EQ(Raised([&] { d.PortValue(output, Variant(!before)); }), "none");
  EXPECT_EQ(d.PortValue(output), Variant(!before));

  d.Disconnect();
  EXPECT_EQ(Raised([&] { d.Ports(); }), "45003 Not connected");
  EXPECT_EQ(Raised([&] { d.PortValue(output); }), "45003 Not connected");
  EXPECT_EQ(Raised([&] { d.PortValue(output, Variant(true)); }), "45003 Not connected");
  if (GetParam().directions_after_disconnect) {
    EXPECT_EQ(d.PortDirection(output), IOBidirectional);
    EXPECT_EQ(d.PortType(input), vtBool);
  } else {
    EXPECT_EQ(Raised([&] { d.PortDirection(output); }), "45003 Not connected");
  }
}

TEST_P(SharedRules, ReadsWithinHalfASecondComeFromTheCache) {
  test::TestClock clock;
  const Rig rig = GetParam().start();
  IODevice& d = *rig.driver;
  d.Connect(rig.device);

  // A cache never read is stale, however long the system has been up.
  int requests = rig.requests();
  d.PortValue(0);
  EXPECT_GT(rig.requests(), requests);

  for (int32_t i = 0; i < d.Ports(); ++i) d.PortValue(i);  // every group read once
  requests = rig.requests();
  clock.Advance(100ms);
  for (int32_t i = 0; i < d.Ports(); ++i) d.PortValue(i);
  EXPECT_EQ(rig.requests(), requests);

  clock.Advance(600ms);
  d.PortValue(0);
  EXPECT_GT(rig.requests(), requests);
}

TEST_P(SharedRules, AFailedConnectLeavesTheObjectUnconnected) {
  std::string gone;
  {
    const Rig rig = GetParam().start();
    gone = rig.device;
  }
  const Rig rig = GetParam().start();
  IODevice& d = *rig.driver;
  EXPECT_EQ(Raised([&] { d.Connect(gone); }), GetParam().unreachable);
  EXPECT_EQ(Raised([&] { d.Ports(); }), "45003 Not connected");
  if (!rig.server) return;

  // Replies of a broken or hostile device: whatever Connect makes of them, it either connects
  // or leaves the object unconnected. A count below zero is refused like any the table cannot
  // take.
  const std::string negative = GetParam().negative_count_reply;
  for (const std::string& reply :
       {std::string(), std::string("=\n=\r\n,="), std::string("garbage"),
        std::string("root.Input.NbrOfInputs=1\nroot.IOPort.I7.Direction=input\n"), negative}) {
    SCOPED_TRACE("reply \"" + reply + "\"");
    rig.server->SetFixedReply(sim::HttpReply{200, reply});
    const auto driver = std::dynamic_pointer_cast<IODevice>(CreateObject("VMIO." + GetParam().name));
    const std::string raised = Raised([&] { driver->Connect(rig.device); });
    if (!negative.empty() && reply == negative) {
      EXPECT_EQ(raised, "9 Subscript out of range");
    }
    if (raised == "none") {
      EXPECT_GE(driver->Ports(), 0);
    } else {
      EXPECT_EQ(Raised([&] { driver->Ports(); }), "45003 Not connected") << "after " << raised;
    }
  }
}

TEST_P(SharedRules, ADeviceStringHoldingANulIsRefusedLikeAnUnreachableDevice) {
  const Rig rig = GetParam().start();
  const size_t host_end = rig.device.find(':');
  // Cut at the NUL, each string names the simulated device: nothing may reach it.
  for (const std::string& device :
       {rig.device + std::string("\0/x", 3),
        rig.device.substr(0, host_end) + std::string("\0x", 2) + rig.device.substr(host_end)}) {
    IODevice& d = *rig.driver;
    const int requests = rig.requests();
    EXPECT_EQ(Raised([&] { d.Connect(device); }), GetParam().unreachable) << testing::PrintToString(device);
    EXPECT_EQ(Raised([&] { d.Ports(); }), "45003 Not connected");
    EXPECT_EQ(rig.requests(), requests);
  }
}

TEST_P(SharedRules, ACallIntoTheDeviceFromATraceOfItsOwnExchangeIsRefused) {
  const Rig rig = GetParam().start();
  IODevice& d = *rig.driver;
  d.Connect(rig.device);
  int32_t output = 0;
  while (d.PortDirection(output) != IOBidirectional) ++output;
  const bool before = d.PortValue(output).AsBool();
  // The handler calls back into the device at every trace text of the write below, while the
  // transport is mid-exchange (the request going out, the reply being read).
  std::vector<std::string> inner;
  bool writing = false;
  SetTraceHandler([&](std::string_view) {
    if (writing) inner.push_back(Raised([&] { d.PortValue(output, Variant(before)); }));
  });
  writing = true;
  const std::string outer = Raised([&] { d.PortValue(output, Variant(!before)); });
  writing = false;
  SetTraceHandler(nullptr);
  EXPECT_EQ(outer, "none");
  ASSERT_FALSE(inner.empty());
  for (const std::string& raised : inner) EXPECT_EQ(raised, "5 Invalid procedure call or argument");
  const int requests = rig.requests();
  EXPECT_EQ(Raised([&] { d.PortValue(output, Variant(before)); }), "none") << "usable again";
  EXPECT_GT(rig.requests(), requests);
}

TEST_P(SharedRules, ASilentDeviceFailsTheReadAfterTheReceiveTimeOut) {
  if (GetParam().silent_read.empty()) GTEST_SKIP() << "not an HTTP device";
  const Rig rig = GetParam().start();
  IODevice& d = *rig.driver;
  d.Connect(rig.device);

  rig.server->SetSilent(true);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Raised([&] { d.PortValue(0); }), GetParam().silent_read);
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited, 4500ms);
  EXPECT_LT(waited, 8000ms);

  // The failed read did not restart the cache: once the device answers, the next read asks.
  rig.server->SetSilent(false);
  const int requests = rig.requests();
  EXPECT_TRUE(d.PortValue(0).IsBool());
  EXPECT_GT(rig.requests(), requests);
}

TEST_P(SharedRules, AWriteTheDeviceNeverGetsRaisesAndTheCacheKeepsWhatTheMakeStored) {
  if (GetParam().silent_read.empty()) GTEST_SKIP() << "not an HTTP device";
  const Rig rig = GetParam().start();
  IODevice& d = *rig.driver;
  d.Connect(rig.device);
  int32_t output = 0;
  while (d.PortDirection(output) != IOBidirectional) ++output;
  const bool before = d.PortValue(output).AsBool();  // the cache is fresh from here on

  rig.server->Stop();
  EXPECT_EQ(Raised([&] { d.PortValue(output, Variant(!before)); }), GetParam().silent_read);
  EXPECT_EQ(d.PortValue(output).AsBool(), GetParam().failed_write_is_cached ? !before : before);
}

INSTANTIATE_TEST_SUITE_P(EveryMake, SharedRules, testing::ValuesIn(Makes()),
                         [](const testing::TestParamInfo<Make>& info) { return info.param.name; });

}  // namespace
}  // namespace vmio
