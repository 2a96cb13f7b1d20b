// The HID seam on Linux against the simulated device tree: what it lists, and reports both ways.
#include "hid/hid_device.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "logit_sim.h"
#include "support/sysfs_root.h"

namespace vmio {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

std::string Listed(const std::vector<HidInterfaceInfo>& found, const std::string& root) {
  std::string text;
  for (const auto& hid : found) {
    char ids[16];
    std::snprintf(ids, sizeof ids, " %04X:%04X", hid.vendor_id, hid.product_id);
    text += (text.empty() ? "" : ", ") + hid.path.substr(root.size()) + ids;
  }
  return text;
}

TEST(HidSeam, ListsEveryReadableInterfaceInNaturalOrderUnderTheGivenRoot) {
  sim::LogITSimOptions options;
  options.loggers = {{.node = 10}, {.product_id = 0x01FF, .node = 2}};
  options.foreign = {{.vendor_id = 0x046D, .product_id = 0xC52B, .node = 9}, {.readable_id = false, .node = 1}};
  sim::LogITSim sim(options);
  {
    test::SysfsRoot root(sim.Root());
    EXPECT_EQ(Listed(ListHidInterfaces(), sim.Root()),
              "/dev/hidraw2 0C6F:01FF, /dev/hidraw9 046D:C52B, /dev/hidraw10 0C6F:0101");
  }
  test::SysfsRoot nowhere(sim.Root() + "/dev");
  EXPECT_TRUE(ListHidInterfaces().empty());
}

TEST(HidSeam, ReportsGoOutWholeAndComeInWithTheirIdInFront) {
  sim::LogITSim sim;
  const auto device = OpenHidDevice(sim.DevicePath(0));
  ASSERT_NE(device, nullptr);
  EXPECT_TRUE(device->Write({0, 1, 13, 0, 0, 0, 0, 0, 0}));  // wakes the logger: "OK\r"
  HidReport report{};
  const auto until = Clock::now() + 1s;
  while (report[8] != 3 && Clock::now() < until) ASSERT_TRUE(device->Read(report, 100));
  // The simulator sends 8 bytes, as hidraw delivers an unnumbered report.
  EXPECT_EQ(report, (HidReport{0, 0, 0, 0, 0, 'O', 'K', '\r', 3}));
  ASSERT_FALSE(sim.Commands(0).empty());
  EXPECT_EQ(sim.Commands(0).back().bytes, (std::vector<uint8_t>{13}));
}

TEST(HidSeam, WaitsAreLimitedAndAGoneDeviceFailsAtOnce) {
  sim::LogITSim sim;
  sim.SetStreaming(0, false);
  auto device = OpenHidDevice(sim.DevicePath(0));
  ASSERT_NE(device, nullptr);
  HidReport report{};
  auto start = Clock::now();
  EXPECT_FALSE(device->Read(report, 150));
  EXPECT_GE(Clock::now() - start, 140ms);
  EXPECT_LT(Clock::now() - start, 400ms);

  sim.DropConnections(0);
  start = Clock::now();
  EXPECT_FALSE(device->Read(report, 1000));
  EXPECT_FALSE(device->Write(HidReport{}));
  EXPECT_LT(Clock::now() - start, 200ms);

  EXPECT_EQ(OpenHidDevice(sim.Root() + "/dev/hidraw99"), nullptr);
  const std::string plain = sim.Root() + "/plain-file";
  std::ofstream(plain) << "not a device";
  EXPECT_EQ(OpenHidDevice(plain), nullptr);
  std::filesystem::remove(plain);
}

}  // namespace
}  // namespace vmio
