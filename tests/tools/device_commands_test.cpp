// The device commands against the registered simulated devices.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <regex>
#include <sstream>
#include <thread>

#include "ax200_sim.h"
#include "commands.h"
#include "run_vmio.h"
#include "scoped_environment.h"
#include "serial_sim.h"
#include "sim_makes.h"
#include "vmio/objects.h"

namespace vmio::cli {
namespace {

using sim::SimMake;

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
  const std::span<const SimMake> targets = sim::SimMakes();
  const SwitchableOutput found = FindSwitchableOutput(targets);
  if (!found.target) GTEST_SKIP() << "no registered simulated device has an output that reads back";
  const sim::RunningDevice running = found.target->start();
  const std::string& device = running.device;

  // The other host switches the output while the watch runs; it connects before the watch
  // installs its trace handler, which a host sets before its threads use the library.
  Variant before;
  std::promise<void> connected;
  std::thread other([&] {
    const auto object = CreateObject(found.target->progid);
    auto& io = dynamic_cast<IODevice&>(*object);
    io.Connect(device);
    before = io.PortValue(found.index);
    connected.set_value();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    io.PortValue(found.index, Variant(!before.AsBool()));
  });
  connected.get_future().wait();
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

TEST(Commands, PrintTheLibrarysErrorAndExitWithTheConnectionCodeWhenTheDeviceIsGone) {
  const std::span<const SimMake> targets = sim::SimMakes();
  const auto target = std::ranges::find_if(targets, [](const SimMake& t) { return !t.prepare && !t.name.empty(); });
  if (target == targets.end()) GTEST_SKIP() << "no registered simulated device";
  const std::string device = target->start().device;  // started and stopped: nothing answers there now
  std::istringstream in;
  std::ostringstream out, err;
  const std::vector<std::string> args{"ports", std::string(target->progid), device};
  EXPECT_EQ(RunCommand(args, in, out, err), kExitConnection) << target->progid;
  // What was being done, then the library's own number and text.
  EXPECT_TRUE(std::regex_match(err.str(), std::regex("vmio ports: cannot connect to [^\n]*\nerror [0-9]+: [^\n]*\n")))
      << err.str();
  EXPECT_EQ(out.str(), "");
}

TEST(Demo, RunsVmioSimDemoAndPassesOnItsOutputAndExitCode) {
  {
    const sim::ScopedEnvironment program("VMIO_SIM", VMIO_SIM_PROGRAM);
    const Result demo = Vmio({"demo"});
    EXPECT_EQ(demo.code, kExitOk) << demo.out << demo.err;
    EXPECT_TRUE(std::regex_search(demo.out, std::regex("\n[0-9]+ drivers: [0-9]+ passed, 0 failed\n$"))) << demo.out;
  }
  const sim::ScopedEnvironment missing("VMIO_SIM", "/nonexistent/vmio-sim");
  const Result none = Vmio({"demo"});
  EXPECT_EQ(none.code, kExitDevice);
  EXPECT_EQ(none.err,
            "vmio demo: cannot run /nonexistent/vmio-sim: No such file or directory (install vmio-sim, or name it in "
            "VMIO_SIM)\n");
}

TEST(Set, WritesTextToADoorAndPrintsWhatItReadsThen) {
  sim::Ax200Sim site;
  site.Start();
  const sim::ScopedEnvironment service("VMIO_AX200", site.Address());
  const int door = site.Doors().at(0).id;

  const Result locked = Vmio({"set", "door", "AX200", "0", "Locked"});
  EXPECT_EQ(locked.code, kExitOk) << locked.err;
  EXPECT_EQ(locked.out, "Locked\n");
  EXPECT_EQ(site.DoorMode(door), "Deadlock");
  const Result json = Vmio({"set", "VMIO.AxxessIDDoor", "AX200", "0", "Unlocked", "--json"});
  EXPECT_EQ(json.out, "{\"index\":0,\"name\":\"" + site.Doors().at(0).name + "\",\"value\":\"Unlocked\"}\n");
  EXPECT_EQ(site.DoorMode(door), "DoorUnlock");

  // A value the door does not take changes nothing, and the read-back says so.
  const Result word = Vmio({"set", "door", "AX200", "0", "on"});
  EXPECT_EQ(word.code, kExitDevice);
  EXPECT_EQ(word.out, "Unlocked\n");
  EXPECT_NE(word.err.find("port 0 (" + site.Doors().at(0).name + ") reads Unlocked after on was written"),
            std::string::npos)
      << word.err;
  EXPECT_EQ(site.DoorMode(door), "DoorUnlock");

  // A door that never answers its status: a time-out, told apart by its exit code.
  site.SetStatusAnswer(sim::StatusAnswer::kNever);
  const Result silent = Vmio({"get", "door", "AX200", "0"});
  EXPECT_EQ(silent.code, kExitTimeout) << silent.err;
  EXPECT_NE(silent.err.find("Timed out getting door status"), std::string::npos) << silent.err;
}

TEST(Rs232, CommandsGivenOnTheCommandLineBecomePorts) {
  sim::SerialSim instrument;
  instrument.SetReply("TEMP?", {"21.5\r\n"});
  instrument.SetReply("HUM?", {"40\r\n"});
  const Result ports = Vmio({"ports", "rs232", instrument.Path(), "--command", "TEMP?\\r", "--command=HUM?\\r"});
  EXPECT_EQ(ports.code, kExitOk) << ports.err;
  EXPECT_NE(ports.out.find("\n0      Sensor 1  input      String  21.5\n1      Sensor 2  input      String  40\n"),
            std::string::npos)
      << ports.out;
  EXPECT_EQ(instrument.Received(), "TEMP?\rHUM?\r");

  const Result get = Vmio({"get", "rs232", instrument.Path(), "1", "--command", "TEMP?\\r", "--command", "HUM?\\r"});
  EXPECT_EQ(get.out, "40\n") << get.err;
  // Without commands the device has no ports.
  EXPECT_EQ(Vmio({"get", "rs232", instrument.Path(), "0"}).code, kExitDevice);
}

}  // namespace
}  // namespace vmio::cli
