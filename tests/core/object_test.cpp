#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "core/io_device_placeholder.h"
#include "support/raised.h"
#include "vmio/enumerator.h"
#include "vmio/io_device.h"

namespace vmio {
namespace {

using test::Raised;

// Only the types a variant holds convert: no unsigned, 64-bit or pointer surprises.
static_assert(std::is_constructible_v<Variant, bool>);
static_assert(std::is_constructible_v<Variant, int32_t>);
static_assert(std::is_constructible_v<Variant, const char*>);
static_assert(!std::is_constructible_v<Variant, unsigned>);
static_assert(!std::is_constructible_v<Variant, int64_t>);
static_assert(!std::is_constructible_v<Variant, const int*>);
static_assert(!std::is_convertible_v<std::shared_ptr<Object>, Variant>);

TEST(Variant, ObjectsAndArraysCarryTheirAutomationTypes) {
  const auto record = std::make_shared<IODeviceInfo>("id", "name");
  const Variant object(std::static_pointer_cast<Object>(record));
  EXPECT_EQ(object.VarType(), vtDispatch);
  EXPECT_EQ(object.AsObject(), record);
  EXPECT_EQ(Raised([&] { object.AsInt32(); }), "13 Type mismatch");

  const Variant strings = Variant::Array(vtString, {Variant("10.0.0.1"), Variant("10.0.0.2")});
  EXPECT_EQ(strings.VarType(), vtArray | vtString);
  ASSERT_EQ(strings.AsArray().size(), 2u);
  EXPECT_EQ(strings.AsArray()[1], Variant("10.0.0.2"));
  EXPECT_EQ(strings, Variant::Array(vtString, {Variant("10.0.0.1"), Variant("10.0.0.2")}));
  EXPECT_NE(strings, Variant::Array(vtString, {Variant("10.0.0.1")}));
  EXPECT_EQ(Raised([&] { Variant(true).AsArray(); }), "13 Type mismatch");
}

// An enumerator with records, as a discovering class fills one.
class TwoLoggers : public IODeviceEnumerator {
 public:
  TwoLoggers() {
    Add("/dev/hidraw3", std::make_shared<IODeviceInfo>("/dev/hidraw3", "LogIT SP1 (1)"));
    Add("/dev/hidraw1", std::make_shared<IODeviceInfo>("/dev/hidraw1", "LogIT DataMeter (2)"));
  }
  void AddAgain() { Add("/DEV/HIDRAW3", std::make_shared<IODeviceInfo>()); }
};

TEST(Enumerator, ItemsByPositionOrKeyInInsertionOrderWithTheCollectionsErrors) {
  EXPECT_EQ(IODeviceEnumerator().Count(), 0);

  TwoLoggers list;
  EXPECT_EQ(list.Count(), 2);
  EXPECT_EQ(list.Item(Variant(int32_t{2}))->Name(), "LogIT DataMeter (2)");
  EXPECT_EQ(list.Item(Variant(2.0))->ID(), "/dev/hidraw1");
  EXPECT_EQ(list.Item(Variant("/DEV/hidraw3"))->Name(), "LogIT SP1 (1)");  // keys ignore case
  EXPECT_EQ(Raised([&] { list.Item(Variant(int32_t{0})); }), "9 Subscript out of range");
  EXPECT_EQ(Raised([&] { list.Item(Variant(int32_t{3})); }), "9 Subscript out of range");
  EXPECT_EQ(Raised([&] { list.Item(Variant("/dev/hidraw9")); }), "5 Invalid procedure call or argument");
  EXPECT_EQ(Raised([&] { list.AddAgain(); }), "457 This key is already associated with an element of this collection");

  std::vector<std::string> ids;
  for (const auto& record : list) ids.push_back(record->ID());
  EXPECT_EQ(ids, (std::vector<std::string>{"/dev/hidraw3", "/dev/hidraw1"}));
  const Variant each = list.NewEnum();
  EXPECT_EQ(each.VarType(), vtArray | vtDispatch);
  ASSERT_EQ(each.AsArray().size(), 2u);
  EXPECT_EQ(each.AsArray()[0].AsObject()->Call("ID"), Variant("/dev/hidraw3"));
}

TEST(MemberTable, LateBoundCallsReachEveryMemberThroughTheTable) {
  TwoLoggers list;
  Object& object = list;
  const Variant second[] = {Variant(int32_t{2})};
  const Variant record = object.Call("item", second);
  EXPECT_EQ(record.AsObject()->Call("Name"), Variant("LogIT DataMeter (2)"));
  EXPECT_EQ(object.Call("COUNT"), Variant(int32_t{2}));
  EXPECT_EQ(object.Members().Find(0, MemberKind::kPropertyGet)->name, "Item");
  EXPECT_EQ(object.Members().Find(-4, MemberKind::kPropertyGet)->result, vtVariant);
  EXPECT_EQ(Raised([&] { object.Call("Count", second); }),
            "450 Wrong number of arguments or invalid property assignment");
  EXPECT_EQ(Raised([&] { object.Call("Remove", second); }), "438 Object doesn't support this property or method");

  // The interface's own members, put included, in slot order.
  IODevicePlaceholder placeholder;
  Object& device = placeholder;
  const Variant index[] = {Variant(int32_t{0})};
  const Variant put[] = {Variant(int32_t{0}), Variant(true)};
  EXPECT_EQ(device.Call("Connect", std::vector<Variant>{Variant("10.0.0.5")}), Variant());
  EXPECT_EQ(device.Call("Ports"), Variant(int32_t{0}));
  EXPECT_EQ(device.Call("PortName", index), Variant(""));
  EXPECT_NO_THROW(device.Put("PortValue", put));
  EXPECT_EQ(Raised([&] { device.Put("Ports", put); }), "438 Object doesn't support this property or method");
  std::vector<std::string> slots;
  for (const Member& m : device.Members().members)
    slots.push_back(std::string(m.name) + "/" + std::to_string(m.dispid));
  EXPECT_EQ(slots, (std::vector<std::string>{"Connect/1", "Disconnect/2", "Ports/3", "PortDirection/4", "PortType/5",
                                             "PortName/6", "PortValue/7", "PortValue/7"}));
}

}  // namespace
}  // namespace vmio
