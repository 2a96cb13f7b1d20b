// A simulated logger through the command line: found by `vmio scan`, driven by `vmio shell`.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "commands.h"
#include "logit_sim.h"
#include "support/sysfs_root.h"

namespace vmio::cli {
namespace {

struct Result {
  int code;
  std::string out;
  std::string err;
};

Result Vmio(std::vector<std::string> args, const std::string& input = "") {
  std::istringstream in(input);
  std::ostringstream out, err;
  const int code = RunCommand(args, in, out, err);
  return {code, out.str(), err.str()};
}

TEST(LogITOnTheCommandLine, ScanListsLoggersByIdAndName) {
  sim::LogITSimOptions options;
  options.loggers.resize(2);
  sim::LogITSim sim(options);
  test::SysfsRoot root(sim.Root());
  const std::string listing = "VMIO.LogITEnum: 2 devices\n  " + sim.DevicePath(0) + "  LogIT Black Box 1\n  " +
                              sim.DevicePath(1) + "  LogIT Black Box 2\n";
  EXPECT_EQ(Vmio({"scan"}).out, listing);
  EXPECT_EQ(Vmio({"scan", "logitenum"}).out, listing);
  const Result not_a_list = Vmio({"scan", "logit"});
  EXPECT_EQ(not_a_list.code, 2);
  EXPECT_NE(not_a_list.err.find("VMIO.LogIT does not list devices"), std::string::npos) << not_a_list.err;
  EXPECT_EQ(Vmio({"scan", "logitenum", "extra"}).code, 2);
  EXPECT_EQ(Vmio({"scan", "--json"}).out,
            "[{\"class\":\"VMIO.LogITEnum\",\"id\":\"" + sim.DevicePath(0) +
                "\",\"name\":\"LogIT Black Box 1\"},{\"class\":\"VMIO.LogITEnum\",\"id\":\"" + sim.DevicePath(1) +
                "\",\"name\":\"LogIT Black Box 2\"}]\n");
}

TEST(LogITOnTheCommandLine, TheShellDrivesALoggerAndItsKeepAliveRunsDuringSleep) {
  sim::LogITSim sim;
  test::SysfsRoot root(sim.Root());
  const std::string path = sim.DevicePath(0);
  const Result run =
      Vmio({"shell"}, "new VMIO.LogITEnum\ncall Count\nitem-name i4:1\nitem-id i4:1\nitem-id str:" + path +
                          "\nitem-name i4:2\n"
                          "new VMIO.LogIT\nconnect " +
                          path +
                          "\nports\nname 1\ndirection 1\ntype 1\nget 0\nset 1 bool:true\nget 1\nset 0 bool:true\n"
                          "sleep 1700\nset 1 i4:1\ndisconnect\nports\n");
  EXPECT_EQ(run.out, "ok\ni4:1\nstr:LogIT Black Box 1\nstr:" + path + "\nstr:" + path +
                         "\nerror 9 Subscript out of range\n"
                         "ok\nok\ni4:3\nstr:Relay\ni4:3\ni4:11\nr8:25\nok\nbool:true\n"
                         "error 45004 Port 1is not an output port\n"
                         "ok\nerror 13 Type mismatch\nok\nerror 45003 Not connected\n");
  size_t keep_alives = 0;
  for (const auto& c : sim.Commands(0)) keep_alives += c.bytes == std::vector<uint8_t>{1} ? 1 : 0;
  EXPECT_EQ(keep_alives, 2u + 2u) << "the enumerator's and the connect's model queries, then two during the sleep";
  EXPECT_EQ(sim.Outputs(0), 2);
}

}  // namespace
}  // namespace vmio::cli
