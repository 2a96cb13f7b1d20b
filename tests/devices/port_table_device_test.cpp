#include <gtest/gtest.h>

#include "core/errors.h"
#include "devices/common/port_table_device.h"
#include "support/raised.h"

namespace vmio {
namespace {

// The smallest driver: two inputs and one read-back output, no device behind it.
class TwoInOneOut : public PortTableDevice {
 public:
  void BuildPortTable() override {
    ResizePorts(3);
    FillDirections(2);
  }
  std::string PortName(int32_t) override { return {}; }
  Variant PortValue(int32_t Index) override {
    if (!Connected) RaiseNotConnected();
    return Value(Index);
  }
  void PortValue(int32_t Index, const Variant& NewValue) override {
    if (auto state = BeginOutputWrite(Index, NewValue)) {
      SetValue(Index, *state);
      ++writes;
    }
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

}  // namespace
}  // namespace vmio
