// Listing attached loggers: the HID filter, model names and positions, over the simulated tree.
#include "devices/logit/logit_enum.h"

#include <gtest/gtest.h>

#include "logit_sim.h"
#include "support/raised.h"
#include "support/sysfs_root.h"

namespace vmio {
namespace {

using test::Raised;

std::vector<std::string> Names(const IODeviceEnumerator& list) {
  std::vector<std::string> names;
  for (const auto& info : list) names.push_back(info->Name());
  return names;
}

TEST(LogITEnum, ListsLoggersOfTheVendorsFamilyNamedByModelAndPosition) {
  sim::LogITSimOptions options;
  options.loggers = {{.model = 58, .node = 2},
                     {.node = 10},
                     {.model = 10, .version = "1.2x", .node = 11},
                     {.product_id = 0x01FF, .node = 12}};
  options.foreign = {{.vendor_id = 0x046D, .product_id = 0x0101, .node = 0},
                     {.vendor_id = 0x0C6F, .product_id = 0x0200, .node = 1},
                     {.vendor_id = 0x0C6F, .product_id = 0x0101, .readable_id = false, .node = 3},
                     {.vendor_id = 0x0C6F, .product_id = 0x0100, .node = 4}};
  sim::LogITSim sim(options);
  sim.Unplug(3);
  test::SysfsRoot root(sim.Root());
  const LogITEnum list;
  // The foreign 0C6F:0100 node answers nothing; the unplugged logger cannot be opened.
  EXPECT_EQ(Names(list), (std::vector<std::string>{"LogIT model 3A 1", "Unknown LogIT device 2", "LogIT Black Box 3",
                                                   "LogIT LIVE 4", "LogIT device 5"}));
  EXPECT_EQ(list.Item(Variant(3))->ID(), sim.DevicePath(1));
  EXPECT_EQ(list.Item(Variant(sim.DevicePath(2)))->Name(), "LogIT LIVE 4");
  EXPECT_EQ(Raised([&] { list.Item(Variant(6)); }), "9 Subscript out of range");
  EXPECT_EQ(Raised([&] { list.Item(Variant(0)); }), "9 Subscript out of range");
  EXPECT_EQ(Raised([&] { list.Item(Variant("/dev/hidraw0")); }), "5 Invalid procedure call or argument");
  // Asking for the model leaves the loggers as the driver finds them: nothing but 13, 2 and 1.
  EXPECT_EQ(sim.Commands(1).size(), 3u);
}

TEST(LogITEnum, NoDevicesNoEntries) {
  sim::LogITSimOptions options;
  options.loggers.clear();
  sim::LogITSim sim(options);
  test::SysfsRoot root(sim.Root());
  EXPECT_EQ(LogITEnum().Count(), 0);
}

TEST(LogITEnum, ModelNamesComeFromTheModelTableAndTheVersionFor8To15) {
  const std::pair<int32_t, const char*> names[] = {
      {-1, "Unknown LogIT device"}, {0, "LogIT model 0"},        {2, "LogIT SL"},
      {7, "LogIT model 7"},         {16, "SCC/DCP Controller"},  {31, "LogIT Explorer"},
      {32, "LogIT DataVision CX"},  {33, "LogIT DataVision BX"}, {39, "LogIT DataVision"},
      {40, "LogIT Voyager"},        {55, "LogIT Black Box"},     {56, "LogIT model 38"},
      {255, "LogIT model FF"}};
  for (const auto& [model, name] : names) EXPECT_EQ(LogITModelName(model, "1.00"), name) << model;
  EXPECT_EQ(LogITModelName(8, "1.2"), "LogIT LIVE");
  EXPECT_EQ(LogITModelName(15, " 2.9"), "LogIT DataMeter");
  EXPECT_EQ(LogITModelName(10, "3.05"), "");
  EXPECT_EQ(LogITModelName(10, std::string(4, '\0')), "");
}

}  // namespace
}  // namespace vmio
