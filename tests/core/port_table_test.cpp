#include <gtest/gtest.h>

#include <functional>

#include "core/errors.h"
#include "core/port_table.h"

namespace vmio {
namespace {

// The smallest driver: two inputs and one read-back output, no device behind it.
class TwoInOneOut : public PortTableDevice {
 public:
  void Connect(const std::string& Device) override {
    Host = Device;
    ResizePorts(3);
    PortDirections = {IOInput, IOInput, IOBidirectional};
    Connected = true;
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

int ErrorOf(const std::function<void()>& call, std::string* description = nullptr) {
  try {
    call();
  } catch (const AutomationError& e) {
    if (description) *description = e.Description();
    return e.Number();
  }
  return 0;
}

TEST(PortTable, FreshObjectRaisesNotConnectedForPortsButSubscriptForPortAccessors) {
  TwoInOneOut d;
  std::string text;
  EXPECT_EQ(ErrorOf([&] { d.Ports(); }, &text), 45003);
  EXPECT_EQ(text, "Not connected");
  EXPECT_EQ(ErrorOf([&] { d.PortDirection(0); }), 9);
  EXPECT_EQ(ErrorOf([&] { d.PortType(0); }), 9);
}

TEST(PortTable, DisconnectKeepsTheTableButRefusesPortsAndValues) {
  TwoInOneOut d;
  d.Connect("dev");
  EXPECT_EQ(d.Ports(), 3);
  d.Disconnect();
  EXPECT_EQ(d.PortDirection(2), IOBidirectional);
  EXPECT_EQ(d.PortType(1), vtBool);
  EXPECT_EQ(ErrorOf([&] { d.Ports(); }), 45003);
  EXPECT_EQ(ErrorOf([&] { d.PortValue(0); }), 45003);
  EXPECT_EQ(ErrorOf([&] { d.PortValue(2, true); }), 45003);
}

TEST(PortTable, IndexOutsideTheTableRaisesSubscriptOutOfRange) {
  TwoInOneOut d;
  d.Connect("dev");
  std::string text;
  EXPECT_EQ(ErrorOf([&] { d.PortDirection(-1); }, &text), 9);
  EXPECT_EQ(text, "Subscript out of range");
  EXPECT_EQ(ErrorOf([&] { d.PortDirection(3); }), 9);
  EXPECT_EQ(ErrorOf([&] { d.PortValue(3, true); }), 9);
}

TEST(PortTable, WritesCheckDirectionThenTypeAndUseTheRunTogetherText) {
  TwoInOneOut d;
  d.Connect("dev");
  std::string text;
  EXPECT_EQ(ErrorOf([&] { d.PortValue(1, true); }, &text), 45004);
  EXPECT_EQ(text, "Port 2is not an output port");
  EXPECT_EQ(ErrorOf([&] { d.PortValue(2, int32_t{1}); }, &text), 13);
  EXPECT_EQ(text, "Type mismatch");
  EXPECT_EQ(ErrorOf([&] { d.PortValue(2, "True"); }), 13);
  EXPECT_EQ(d.writes, 0);
  d.PortValue(2, true);
  EXPECT_EQ(d.PortValue(2), Variant(true));
  EXPECT_EQ(d.writes, 1);
}

}  // namespace
}  // namespace vmio
