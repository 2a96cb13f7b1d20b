#include <gtest/gtest.h>

#include "core/errors.h"
#include "devices/common/port_table_device.h"
#include "support/raised.h"

namespace vmio {
namespace {

// The smallest driver: two inputs and one read-back output, no device behind it.
class TwoInOneOut : public PortTableDevice {
 public:
  engine::Task<void> BuildPortTable() override {
    ResizePorts(3);
    FillDirections(2);
    co_return;
  }
  int32_t GroupOf(int32_t) override { return kNoGroup; }
  engine::Task<void> ReadGroup(int32_t) override { co_return; }
  engine::Task<void> WritePort(int32_t Index, Variant NewValue) override {
    if (auto state = BeginOutputWrite(Index, NewValue)) {
      SetValue(Index, *state);
      ++writes;
    }
    co_return;
  }
  int writes = 0;
};

using test::Raised;

TEST(PortTable, FreshObjectRaisesNotConnectedForPortsButSubscriptForPortAccessors) {
  TwoInOneOut d;
  EXPECT_EQ(Raised([&] { d.Ports(); }), "45003 Not connected");
  EXPECT_EQ(Raised([&] { d.PortDirection(0); }), "9 Subscript out of range");
  EXPECT_EQ(Raised([&] { d.PortType(0); }), "9 Subscript out of range");
}

TEST(PortTable, DisconnectKeepsTheTableButRefusesPortsAndValues) {
  TwoInOneOut d;
  d.Connect("dev");
  EXPECT_EQ(d.Ports(), 3);
  d.Disconnect();
  EXPECT_EQ(d.PortDirection(2), IOBidirectional);
  EXPECT_EQ(d.PortType(1), vtBool);
  EXPECT_EQ(Raised([&] { d.Ports(); }), "45003 Not connected");
  EXPECT_EQ(Raised([&] { d.PortValue(0); }), "45003 Not connected");
  EXPECT_EQ(Raised([&] { d.PortValue(2, true); }), "45003 Not connected");
}

TEST(PortTable, IndexOutsideTheTableRaisesSubscriptOutOfRange) {
  TwoInOneOut d;
  d.Connect("dev");
  EXPECT_EQ(Raised([&] { d.PortDirection(-1); }), "9 Subscript out of range");
  EXPECT_EQ(Raised([&] { d.PortDirection(3); }), "9 Subscript out of range");
  EXPECT_EQ(Raised([&] { d.PortValue(3, true); }), "9 Subscript out of range");
}

TEST(PortTable, WritesCheckDirectionThenTypeAndUseTheRunTogetherText) {
  TwoInOneOut d;
  d.Connect("dev");
  EXPECT_EQ(Raised([&] { d.PortValue(1, true); }), "45004 Port 2is not an output port");
  EXPECT_EQ(Raised([&] { d.PortValue(2, int32_t{1}); }), "13 Type mismatch");
  EXPECT_EQ(Raised([&] { d.PortValue(2, "True"); }), "13 Type mismatch");
  EXPECT_EQ(d.writes, 0);
  d.PortValue(2, true);
  EXPECT_EQ(d.PortValue(2), Variant(true));
  EXPECT_EQ(d.writes, 1);
}

// Two groups of one port each; counts the reads the device sees and can fail them.
class TwoGroups : public PortTableDevice {
 public:
  explicit TwoGroups(ReadCaching caching) : PortTableDevice(caching) {}
  engine::Task<void> BuildPortTable() override {
    ResizePorts(2);
    co_return;
  }
  engine::Task<void> ReadGroup(int32_t Group) override {
    ++reads[Group];
    if (fail) RaiseGettingValue();
    SetValue(Group, true);
    co_return;
  }
  engine::Task<void> WritePort(int32_t, Variant) override { co_return; }
  using PortTableDevice::PortValue;
  using ReadCaching = PortTableDevice::ReadCaching;
  int reads[2] = {0, 0};
  bool fail = false;
};

TEST(PortTable, EachGroupIsReadOnceWhileFreshAndAFailedReadFollowsTheDriversMarking) {
  TwoGroups cached(TwoGroups::ReadCaching::kAfterRead);
  cached.Connect("dev");
  EXPECT_EQ(Raised([&] { cached.PortValue(2); }), "9 Subscript out of range");
  cached.fail = true;
  EXPECT_EQ(Raised([&] { cached.PortValue(0); }), "45005 Unable to connect to the device");
  cached.fail = false;
  EXPECT_EQ(cached.PortValue(0), Variant(true));  // a failed read is asked again
  EXPECT_EQ(cached.PortValue(0), Variant(true));
  EXPECT_EQ(cached.PortValue(1), Variant(true));  // the other group has its own cache
  EXPECT_EQ(cached.reads[0], 2);
  EXPECT_EQ(cached.reads[1], 1);

  TwoGroups held_off(TwoGroups::ReadCaching::kBeforeRead);
  held_off.Connect("dev");
  held_off.fail = true;
  EXPECT_EQ(Raised([&] { held_off.PortValue(0); }), "45005 Unable to connect to the device");
  EXPECT_EQ(held_off.PortValue(0), Variant(false));  // marked before asking: the table answers
  EXPECT_EQ(held_off.reads[0], 1);

  TwoGroups uncached(TwoGroups::ReadCaching::kNever);
  uncached.Connect("dev");
  uncached.PortValue(1);
  uncached.PortValue(1);
  EXPECT_EQ(uncached.reads[1], 2);
}

}  // namespace
}  // namespace vmio
