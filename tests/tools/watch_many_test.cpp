// `vmio watch` over several devices, against a simulated fleet with dead devices.
#include "watch_many.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "fleet_sim.h"
#include "run_vmio.h"

namespace vmio::cli {
namespace {

TEST(DeviceList, TakesClassAndDevicePerLineAndNamesABadLineByNumber) {
  std::istringstream good(
      "# the gate\n"
      "\n"
      "  axis   root:p w#d@10.0.0.5:80  \r\n"
      "VMIO.ADAM\t10.0.0.7\n");
  const std::vector<Target> targets = ReadDeviceList(good);
  ASSERT_EQ(targets.size(), 2u);
  EXPECT_EQ(targets[0].cls.progid, "VMIO.Axis");
  EXPECT_EQ(targets[0].device, "root:p w#d@10.0.0.5:80");  // blanks and '#' inside a password stay
  EXPECT_EQ(targets[1].cls.progid, "VMIO.ADAM");
  EXPECT_EQ(targets[1].device, "10.0.0.7");

  const std::map<std::string, std::string> bad{
      {"axis 10.0.0.5\n# fine\naxis\n", "line 3: expected CLASS DEVICE"},
      {"\ntoaster 10.0.0.5\n", "line 2: unknown class 'toaster' (vmio classes lists them)"},
      {"# nothing\n\n", "the device list names no device"},
  };
  for (const auto& [text, message] : bad) {
    std::istringstream in(text);
    try {
      ReadDeviceList(in);
      ADD_FAILURE() << "accepted: " << text;
    } catch (const UsageError& e) {
      EXPECT_EQ(e.what(), message);
    }
  }
  std::istringstream lister("axis 10.0.0.5\nlogitenum x\n");
  EXPECT_THROW(ReadDeviceList(lister), NotADeviceError);
}

TEST(WatchMany, ShowsEveryDeviceAsGivenAndADeadOneHoldsNoneBack) {
  sim::FleetOptions options;
  options.devices = 4;
  options.adam = 1;
  options.unaccepting = 1;
  options.base = "127.251.0.1";  // apart from the ranges other tests pick
  sim::FleetSim fleet(options);
  fleet.Start();
  // The list as a host writes it, one camera given with credentials it does not need.
  std::string list = "# site\n" + sim::FleetDeviceList(fleet.Devices());
  std::string dead, with_password;
  for (const sim::FleetDevice& d : fleet.Devices()) {
    if (d.health != sim::FleetHealth::Live) dead = d.device;
    if (d.health == sim::FleetHealth::Live && d.make == sim::FleetMake::Axis && with_password.empty()) {
      with_password = "root:hunter2@" + d.device;
      list += "VMIO.Axis " + with_password + "\n";
    }
  }
  const std::string file = ::testing::TempDir() + "vmio-site.list";
  std::ofstream(file) << list;

  const Result result = Vmio({"watch", "--devices", file, "--json", "--interval", "100", "--count", "15"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(result.out.find("hunter2"), std::string::npos);

  // Per device as given: its first time online, how many values, and whether it went offline.
  const std::regex line(R"re(\{"time":"[^"]+","device":"([^"]+)","class":"VMIO\.(Axis|ADAM)",(.*)\})re");
  std::map<std::string, int> values;
  std::map<std::string, std::vector<std::string>> states;
  std::istringstream lines(result.out);
  for (std::string text; std::getline(lines, text);) {
    std::smatch m;
    ASSERT_TRUE(std::regex_match(text, m, line)) << text;
    const std::string fields = m[3];
    if (fields.starts_with("\"index\":") && fields.find("\"value\":") != std::string::npos) ++values[m[1]];
    if (fields.starts_with("\"state\":")) states[m[1]].push_back(fields);
  }
  const std::string masked = "root:***@" + with_password.substr(with_password.find('@') + 1);
  for (const sim::FleetDevice& d : fleet.Devices()) {
    if (d.health != sim::FleetHealth::Live) continue;
    EXPECT_EQ(values[d.device], d.make == sim::FleetMake::Axis ? 6 : 18) << d.device;
    // Online first; never offline (a busy machine may let it go stale for a moment).
    ASSERT_FALSE(states[d.device].empty()) << d.device;
    EXPECT_EQ(states[d.device].front(), "\"state\":\"online\"") << d.device;
    EXPECT_EQ(std::ranges::count(states[d.device], "\"state\":\"offline\""), 0) << d.device;
  }
  EXPECT_EQ(values[masked], 6);
  EXPECT_EQ(values[dead], 0);
  EXPECT_EQ(states[dead], std::vector<std::string>{"\"state\":\"offline\""});

  // People's lines name the device too; a dead device's state shows among the others' values.
  const std::string camera = with_password.substr(with_password.find('@') + 1);
  const Result text = Vmio({"watch", "axis", camera, "127.0.0.1:9", "--interval", "100", "--count", "10"});
  EXPECT_EQ(text.code, 0) << text.err;
  const std::string refused = "  127.0.0.1:9  error 45001: Unable to connect to the device\n";
  EXPECT_NE(text.out.find(refused), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("  127.0.0.1:9  state offline\n"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("  " + camera + "  0  Input 1  false\n"), std::string::npos) << text.out;
  EXPECT_EQ(text.out.rfind("watching 2 devices, every 100 ms\n", 0), 0u);
}

TEST(WatchMany, RefusesWhatSuitsOneDeviceOnly) {
  const std::string usage =
      "usage: vmio watch CLASS DEVICE [DEVICE...] [--devices FILE] [--interval MS] [--count N] [--command TEXT]... "
      "[--json]\n";
  EXPECT_EQ(Vmio({"watch", "axis", "h1", "h2", "--user", "root"}).err,
            "vmio watch: --user applies to one DEVICE; put user:password@ in each instead\n" + usage);
  EXPECT_EQ(Vmio({"watch", "rs232", "/dev/a", "/dev/b", "--command", "X"}).err,
            "vmio watch: --command applies to one DEVICE\n" + usage);
  EXPECT_EQ(Vmio({"watch", "axis", "--devices", "f"}).err,
            "vmio watch: --devices FILE takes no CLASS or DEVICE beside it\n" + usage);
  EXPECT_EQ(Vmio({"watch", "--devices", "/nonexistent/list"}).err,
            "vmio watch: cannot read the device list '/nonexistent/list'\n" + usage);
  EXPECT_EQ(Vmio({"watch", "axis"}).err, "vmio watch: missing arguments\n" + usage);
}

}  // namespace
}  // namespace vmio::cli
