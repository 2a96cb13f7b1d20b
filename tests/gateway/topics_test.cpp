#include "topics.h"

#include <gtest/gtest.h>

namespace vmio::gateway {
namespace {

TEST(GatewayTopics, SetTopicsAreReadBackOnlyUnderTheirOwnPrefix) {
  const Topics topics("vmio");
  EXPECT_EQ(topics.State("cam", 3), "vmio/cam/3/state");
  const auto set = topics.ParseSet(topics.Set("front-camera", 12));
  ASSERT_TRUE(set);
  EXPECT_EQ(set->device, "front-camera");
  EXPECT_EQ(set->port, "12");
  for (const char* other : {"vmio/cam/1/state", "vmiox/cam/1/set", "vmio/cam/set", "vmio//1/set", "vmio/cam//set",
                            "vmio/cam/1/set/x", "other/cam/1/set", "vmio"}) {
    EXPECT_FALSE(topics.ParseSet(other)) << other;
  }
  EXPECT_EQ(ParsePortIndex("0"), 0);
  EXPECT_EQ(ParsePortIndex("15"), 15);
  for (const char* bad : {"", "-1", "+1", "01", "1x", "999999"}) EXPECT_FALSE(ParsePortIndex(bad)) << bad;
}

TEST(GatewayTopics, PayloadsAreReadByThePortsTypeAndStatesWrittenTheWayHomeAssistantReadsThem) {
  EXPECT_EQ(ParseSetPayload("ON", vtBool), Variant(true));
  EXPECT_EQ(ParseSetPayload("off\n", vtBool), Variant(false));
  EXPECT_EQ(ParseSetPayload("1", vtBool), Variant(true));
  EXPECT_FALSE(ParseSetPayload("toggle", vtBool));
  EXPECT_FALSE(ParseSetPayload("", vtBool));
  EXPECT_EQ(ParseSetPayload(" Locked ", vtString), Variant(" Locked "));  // text goes as sent
  EXPECT_EQ(ParseSetPayload("42", vtI4), Variant(int32_t{42}));
  EXPECT_FALSE(ParseSetPayload("40000", vtI2));
  EXPECT_FALSE(ParseSetPayload("2.5x", vtR8));
  EXPECT_FALSE(ParseSetPayload(std::string(kMaxSetPayload + 1, 'a'), vtString));

  EXPECT_EQ(StateText(Variant(true)), "ON");
  EXPECT_EQ(StateText(Variant(false)), "OFF");
  EXPECT_EQ(StateText(Variant(0.5)), "0.5");
  EXPECT_EQ(StateText(Variant(int16_t{-3})), "-3");
  EXPECT_EQ(StateText(Variant("Normal")), "Normal");
  EXPECT_EQ(StateText(Variant()), "None");  // never an empty retained payload, which deletes
}

}  // namespace
}  // namespace vmio::gateway
