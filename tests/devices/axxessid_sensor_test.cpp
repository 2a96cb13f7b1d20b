// AxxessIDSensor against the simulated AX200 service over its real socket.
#include <gtest/gtest.h>

#include <chrono>

#include "devices/axxessid/axxessid_sensor.h"
#include "support/ax200_site.h"
#include "support/raised.h"
#include "support/test_clock.h"

namespace vmio {
namespace {

using namespace std::chrono_literals;
using test::Ax200Site;
using test::Raised;

TEST(AxxessIDSensor, SensorsAreStringInputsInListOrderWithTheirCurrentValues) {
  test::TestClock clock;
  Ax200Site site;
  AxxessIDSensor sensor;
  sensor.Connect("site");
  EXPECT_EQ(site.sim.Requests().back(), "SENSORS");
  ASSERT_EQ(sensor.Ports(), 2);
  EXPECT_EQ(sensor.PortName(0), "Server room temperature");
  EXPECT_EQ(sensor.PortDirection(1), IOInput);
  EXPECT_EQ(sensor.PortType(1), vtString);
  EXPECT_EQ(sensor.PortValue(0), Variant("21.5"));
  // One list read serves every port for 500 ms; then the new value shows.
  site.sim.SetSensorValue("1", "23.0");
  EXPECT_EQ(sensor.PortValue(0), Variant("21.5"));
  clock.Advance(520ms);
  EXPECT_EQ(sensor.PortValue(0), Variant("23.0"));
  EXPECT_EQ(sensor.PortValue(1), Variant("40"));
}

TEST(AxxessIDSensor, WritesIndexesAndConnectionFailAsForTheDoors) {
  test::TestClock clock;
  Ax200Site site;
  AxxessIDSensor sensor;
  EXPECT_EQ(Raised([&] { sensor.PortValue(0, Variant("1")); }), "45003 Not connected");
  EXPECT_EQ(Raised([&] { sensor.PortName(0); }), "9 Subscript out of range");
  sensor.Connect("site");
  EXPECT_EQ(Raised([&] { sensor.PortValue(1, Variant("1")); }), "45004 Port 2 is not an output port");
  EXPECT_EQ(Raised([&] { sensor.PortValue(2, Variant("1")); }), "9 Subscript out of range");
  EXPECT_EQ(Raised([&] { sensor.PortValue(-1); }), "9 Subscript out of range");

  site.sim.CloseConnections();
  clock.Advance(520ms);
  EXPECT_EQ(Raised([&] { sensor.PortValue(0); }), "45005 The AX200 software is not running");
  site.sim.SetPresent(false);
  EXPECT_EQ(Raised([&] { sensor.Connect("site"); }), "45001 The AX200 software is not found");
  EXPECT_EQ(Raised([&] { sensor.Ports(); }), "45003 Not connected");
  EXPECT_EQ(sensor.PortName(1), "Server room humidity");
}

}  // namespace
}  // namespace vmio
