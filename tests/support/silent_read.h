#pragma once
// A read from an HTTP device that stops answering mid-session.
#include <gtest/gtest.h>

#include <chrono>

#include "http_sim_server.h"
#include "support/raised.h"
#include "vmio/io_device.h"

namespace vmio::test {

// Silences the server for one read of the first port, which must fail with the driver's
// fixed text once the client's receive time-out has run, neither sooner nor much later.
// The server answers again afterwards.
inline void ExpectASilentReadToTimeOut(IODevice& driver, sim::HttpSimServer& server) {
  using std::chrono::milliseconds;
  server.SetSilent(true);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Raised([&] { driver.PortValue(0); }), "45005 Unable to connect to the device");
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited, milliseconds(4500));
  EXPECT_LT(waited, milliseconds(8000));
  server.SetSilent(false);
}

}  // namespace vmio::test
