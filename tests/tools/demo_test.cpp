// The demo and the device commands against whatever simulated devices are registered.
#include "demo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "commands.h"
#include "vmio/error.h"
#include "vmio/objects.h"

namespace vmio::cli {
namespace {

sim::RunningDevice NoSimulator() { return {nullptr, "operator:hunter2@127.0.0.1:9"}; }

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
      {"VMIO.IODevice", []() -> sim::RunningDevice { throw std::runtime_error("address in use"); }},
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
  const SimMake* adam = sim::FindMake("VMIO.ADAM");
  ASSERT_TRUE(adam);
  const sim::RunningDevice first = adam->start();
  const sim::RunningDevice second = adam->start();
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

// A registered simulated device without set-up, and its first port that reads back from the
// device an output it can switch; nothing when no target has one.
struct SwitchableOutput {
  const SimMake* target = nullptr;
  int32_t index = -1;
};

SwitchableOutput FindSwitchableOutput(std::span<const SimMake> targets) {
  for (const SimMake& t : targets) {
    if (t.prepare) continue;
    const sim::RunningDevice running = t.start();
    const auto object = CreateObject(t.progid);
    auto& io = dynamic_cast<IODevice&>(*object);
    io.Connect(running.device);
    for (int32_t i = 0; i < io.Ports(); ++i) {
      if (io.PortDirection(i) == IOBidirectional && io.PortType(i) == vtBool) return {&t, i};
    }
  }
  return {};
}

TEST(Watch, PrintsTheStartingValuesAndThenAChangeMadeByAnotherHost) {
  const std::vector<SimMake> targets = DemoTargets();
  const SwitchableOutput found = FindSwitchableOutput(targets);
  if (!found.target) GTEST_SKIP() << "no registered simulated device has an output that reads back";
  const sim::RunningDevice running = found.target->start();
  const std::string& device = running.device;

  // The other host switches the output while the watch runs.
  Variant before;
  std::thread other([&] {
    const auto object = CreateObject(found.target->progid);
    auto& io = dynamic_cast<IODevice&>(*object);
    io.Connect(device);
    before = io.PortValue(found.index);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    io.PortValue(found.index, Variant(!before.AsBool()));
  });
  const std::string progid(found.target->progid);
  std::istringstream in;
  std::ostringstream out, err;
  const std::vector<std::string> args{"watch", progid, device, "--interval", "100", "--count", "12"};
  const int code = RunCommand(args, in, out, err);
  other.join();
  EXPECT_EQ(code, 0) << err.str();

  const std::string index = std::to_string(found.index);
  const std::regex line("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}  " + index +
                        "  .*  (true|false)");
  std::vector<std::string> values;
  std::istringstream lines(out.str());
  for (std::string l; std::getline(lines, l);) {
    std::smatch m;
    if (std::regex_match(l, m, line)) values.push_back(m[1]);
  }
  const std::string was = before.AsBool() ? "true" : "false";
  const std::string now = before.AsBool() ? "false" : "true";
  EXPECT_EQ(values, (std::vector<std::string>{was, now})) << out.str();
}

TEST(Commands, PrintTheLibrarysErrorAndExit1WhenTheDeviceIsGone) {
  const std::vector<SimMake> targets = DemoTargets();
  const auto target = std::ranges::find_if(targets, [](const SimMake& t) { return !t.prepare; });
  if (target == targets.end()) GTEST_SKIP() << "no registered simulated device";
  const std::string device = target->start().device;  // started and stopped: nothing answers there now
  std::istringstream in;
  std::ostringstream out, err;
  const std::vector<std::string> args{"ports", std::string(target->progid), device};
  EXPECT_EQ(RunCommand(args, in, out, err), 1);
  // What was being done, then the library's own number and text.
  EXPECT_TRUE(std::regex_match(err.str(), std::regex("vmio ports: cannot connect to [^\n]*\nerror [0-9]+: [^\n]*\n")))
      << err.str();
  EXPECT_EQ(out.str(), "");
}

}  // namespace
}  // namespace vmio::cli
