#pragma once
// Reading a driver's port table the way the device tests assert on it.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "vmio/io_device.h"

namespace vmio::test {

// The state of a Boolean port; a failed expectation when the value is of another type.
inline bool Read(IODevice& device, int32_t index) {
  const Variant value = device.PortValue(index);
  EXPECT_EQ(value.VarType(), vtBool);
  return value.AsBool();
}

// The state of every port, in table order.
inline std::vector<bool> States(IODevice& device) {
  std::vector<bool> states;
  for (int32_t i = 0; i < device.Ports(); ++i) states.push_back(Read(device, i));
  return states;
}

// The direction of every port, in table order.
inline std::vector<int32_t> Directions(IODevice& device) {
  std::vector<int32_t> directions;
  for (int32_t i = 0; i < device.Ports(); ++i) directions.push_back(device.PortDirection(i));
  return directions;
}

// "NAME/DIRECTION" of every port, in table order.
inline std::vector<std::string> Names(IODevice& device) {
  std::vector<std::string> names;
  for (int32_t i = 0; i < device.Ports(); ++i) {
    names.push_back(device.PortName(i) + "/" + std::to_string(device.PortDirection(i)));
  }
  return names;
}

}  // namespace vmio::test
