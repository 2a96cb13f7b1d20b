// The demo against whatever simulated devices are registered.
#include "demo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "vmio/error.h"
#include "vmio/objects.h"

namespace vmio::sim::cli {
namespace {

RunningDevice NoSimulator() { return {nullptr, "operator:hunter2@127.0.0.1:9"}; }

TEST(Demo, RunsEveryRegisteredDriverAgainstItsSimulator) {
  const std::vector<SimMake> targets = DemoTargets();
  std::ostringstream out;
  EXPECT_EQ(RunDemo(targets, out), 0) << out.str();
  const std::string text = out.str();
  for (const SimMake& t : targets) {
    const std::regex summary("\n  " + std::string(t.progid) +
                             " +[0-9]+ ports?, [0-9]+ reads?, (write checked|no outputs)\n");
    EXPECT_TRUE(std::regex_search(text, summary)) << t.progid << "\n" << text;
  }
  const std::string n = std::to_string(targets.size());
  EXPECT_NE(text.find(n + (targets.size() == 1 ? " driver: " : " drivers: ") + n + " passed, 0 failed\n"),
            std::string::npos);
}

TEST(Demo, ReportsEachFailingTargetAndGoesOnWithTheRest) {
  const SimMake targets[] = {
      {"VMIO.NoSuchDriver", &NoSimulator},
      {"VMIO.IODevice", []() -> RunningDevice { throw std::runtime_error("address in use"); }},
      {"VMIO.IODevice", &NoSimulator, [](Object&) { throw AutomationError(13); }},
      {"VMIO.IODevice", &NoSimulator},
  };
  std::ostringstream out;
  EXPECT_EQ(RunDemo(targets, out), 3);
  const std::string text = out.str();
  EXPECT_NE(
      text.find("VMIO.NoSuchDriver\n  failed creating the object: error 429: ActiveX component can't create object\n"),
      std::string::npos)
      << text;
  EXPECT_NE(text.find("  failed starting the simulator: address in use\n"), std::string::npos) << text;
  EXPECT_NE(text.find("  failed preparing the object: error 13: Type mismatch\n"), std::string::npos) << text;
  EXPECT_NE(text.find("VMIO.IODevice\n  connected to operator:***@127.0.0.1:9, 0 ports\n"), std::string::npos) << text;
  EXPECT_NE(text.find("  VMIO.IODevice      0 ports, 0 reads, no outputs\n"), std::string::npos) << text;
  EXPECT_NE(text.find("4 drivers: 1 passed, 3 failed\n"), std::string::npos) << text;
  EXPECT_EQ(text.find("hunter2"), std::string::npos);
}

TEST(Demo, RunsWhileOtherModulesServeTheModelQueryPort) {
  // Each simulated module answers its model query on UDP 1025 of its own loopback address.
  const SimMake* adam = FindMake("VMIO.ADAM");
  ASSERT_TRUE(adam);
  const RunningDevice first = adam->start();
  const RunningDevice second = adam->start();
  const auto host = [](const std::string& device) { return device.substr(0, device.find(':')); };
  EXPECT_NE(host(first.device), host(second.device));
  for (const std::string& device : {first.device, second.device}) {
    const auto object = CreateObject("VMIO.ADAM");
    auto& io = dynamic_cast<IODevice&>(*object);
    io.Connect(device);
    EXPECT_EQ(io.Ports(), 12) << device;  // the fixture's 6060
  }
  std::ostringstream out;
  EXPECT_EQ(RunDemo(DemoTargets(), out), 0) << out.str();
}

}  // namespace
}  // namespace vmio::sim::cli
