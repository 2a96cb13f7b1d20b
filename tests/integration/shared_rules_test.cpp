// The port-table and write rules every Boolean-port driver shares, checked on each driver
// against its simulator. They live once in the shared port table and request routine: a
// regression there shows up here for every make at once.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <type_traits>

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
#include "stardot_sim.h"
#include "support/raised.h"
#include "vivotek_sim.h"
#include "vmio/objects.h"

namespace vmio {
namespace {

static_assert(std::is_base_of_v<HttpDevice, Axis> && std::is_base_of_v<HttpDevice, Vivotek> &&
              std::is_base_of_v<HttpDevice, ACTi> && std::is_base_of_v<HttpDevice, StarDot> &&
              std::is_base_of_v<HttpDevice, Genie> && std::is_base_of_v<HttpDevice, AviosysPDU>);
static_assert(std::is_base_of_v<PortTableDevice, ADAM>);

using test::Raised;

struct Make {
  std::string name;
  // Starts the simulated device, keeps it in `device_keeper`, returns the driver and the
  // device string.
  std::function<std::shared_ptr<IODevice>(std::shared_ptr<void>& device_keeper, std::string& device)> start;
  // Whether directions answer after Disconnect (one make checks the connection first).
  bool directions_after_disconnect = true;
};

template <class Sim, class Options>
std::shared_ptr<IODevice> StartHttp(const char* progid, Options options, std::shared_ptr<void>& keeper,
                                    std::string& device) {
  auto sim = std::make_shared<Sim>(std::move(options));
  sim->Start();
  device = sim->DeviceString();
  keeper = sim;
  return std::dynamic_pointer_cast<IODevice>(CreateObject(progid));
}

std::vector<Make> Makes() {
  std::vector<Make> makes;
  makes.push_back({"Axis", [](auto& keeper, auto& device) {
                     return StartHttp<sim::AxisSim>("VMIO.Axis", sim::AxisSimOptions{}, keeper, device);
                   }});
  makes.push_back({"Vivotek", [](auto& keeper, auto& device) {
                     return StartHttp<sim::VivotekSim>("VMIO.Vivotek", sim::VivotekSimOptions{}, keeper, device);
                   }});
  makes.push_back({"ACTi", [](auto& keeper, auto& device) {
                     return StartHttp<sim::ACTiSim>("VMIO.ACTi", sim::ACTiSimOptions{}, keeper, device);
                   }});
  makes.push_back({"StarDot", [](auto& keeper, auto& device) {
                     return StartHttp<sim::StarDotSim>("VMIO.StarDot", sim::StarDotSimOptions{}, keeper, device);
                   }});
  makes.push_back({"Genie", [](auto& keeper, auto& device) {
                     return StartHttp<sim::GenieSim>("VMIO.Genie", sim::GenieSimOptions{}, keeper, device);
                   }});
  makes.push_back({"AviosysPDU",
                   [](auto& keeper, auto& device) {
                     sim::AviosysSimOptions options;
                     options.fixed_model = true;  // the model with inputs
                     return StartHttp<sim::AviosysSim>("VMIO.AviosysPDU", options, keeper, device);
                   },
                   false});
  makes.push_back({"ADAM", [](auto& keeper, auto& device) {
                     auto sim = std::make_shared<sim::AdamSim>();
                     sim->Start();
                     device = sim->DeviceString();
                     keeper = sim;
                     return std::static_pointer_cast<IODevice>(
                         std::make_shared<ADAM>(static_cast<uint16_t>(sim->UdpPort())));
                   }});
  return makes;
}

class SharedRules : public testing::TestWithParam<Make> {};

TEST_P(SharedRules, HoldForThisMake) {
  std::shared_ptr<void> keeper;
  std::string device;
  const std::shared_ptr<IODevice> d = GetParam().start(keeper, device);
  ASSERT_TRUE(d);

  EXPECT_EQ(Raised([&] { d->Ports(); }), "45003 Not connected");
  EXPECT_EQ(Raised([&] { d->PortValue(0); }), "45003 Not connected");
  EXPECT_EQ(Raised([&] { d->PortValue(0, true); }), "45003 Not connected");

  d->Connect(device);
  const int32_t ports = d->Ports();
  ASSERT_GT(ports, 0);
  EXPECT_EQ(Raised([&] { d->PortDirection(-1); }), "9 Subscript out of range");
  EXPECT_EQ(Raised([&] { d->PortDirection(ports); }), "9 Subscript out of range");
  EXPECT_EQ(Raised([&] { d->PortType(ports); }), "9 Subscript out of range");

  int32_t input = -1, output = -1;
  for (int32_t i = 0; i < ports; ++i) {
    EXPECT_EQ(d->PortType(i), vtBool);
    const int32_t direction = d->PortDirection(i);
    if (direction == IOInput && input < 0) input = i;
    if (direction == IOBidirectional && output < 0) output = i;
    EXPECT_TRUE(d->PortValue(i).IsBool());
  }
  ASSERT_GE(input, 0);
  ASSERT_GE(output, 0);
  EXPECT_EQ(Raised([&] { d->PortValue(input, true); }),
            "45004 Port " + std::to_string(input + 1) + "is not an output port");
  EXPECT_EQ(Raised([&] { d->PortValue(output, int32_t{1}); }), "13 Type mismatch");
  const bool before = d->PortValue(output).AsBool();
  EXPECT_EQ(Raised([&] { d->PortValue(output, !before); }), "none");
  EXPECT_EQ(d->PortValue(output), Variant(!before));

  d->Disconnect();
  EXPECT_EQ(Raised([&] { d->Ports(); }), "45003 Not connected");
  EXPECT_EQ(Raised([&] { d->PortValue(output); }), "45003 Not connected");
  if (GetParam().directions_after_disconnect) {
    EXPECT_EQ(d->PortDirection(output), IOBidirectional);
    EXPECT_EQ(d->PortType(input), vtBool);
  } else {
    EXPECT_EQ(Raised([&] { d->PortDirection(output); }), "45003 Not connected");
  }
}

INSTANTIATE_TEST_SUITE_P(EveryMake, SharedRules, testing::ValuesIn(Makes()),
                         [](const testing::TestParamInfo<Make>& info) { return info.param.name; });

}  // namespace
}  // namespace vmio
