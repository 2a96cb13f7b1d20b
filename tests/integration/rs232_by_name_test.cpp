#include <gtest/gtest.h>

#include "serial_sim.h"
#include "vmio/objects.h"

namespace vmio {
namespace {

TEST(RS232ByName, CreatedByItsProgrammaticNameAndDrivenLateBound) {
  sim::SerialSim instrument;
  instrument.SetReply("T?", {.text = "21.4\r\n"});
  const auto object = CreateObject("vmio.rs232");
  auto* rs232 = dynamic_cast<IODevice*>(object.get());
  ASSERT_NE(rs232, nullptr);
  const Variant command[] = {"T?\r"};
  EXPECT_EQ(object->Call("AddCommand", command), Variant(int32_t{0}));
  rs232->Connect(instrument.Path());
  EXPECT_EQ(rs232->PortValue(0), Variant("21.4"));
  EXPECT_EQ(instrument.Received(), "T?\r");
}

}  // namespace
}  // namespace vmio
