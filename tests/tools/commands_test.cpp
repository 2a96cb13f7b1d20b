#include "commands.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "credentials.h"
#include "vmio/objects.h"

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

TEST(Credentials, PasswordsAreMaskedAndNothingElse) {
  EXPECT_EQ(MaskCredentials("root:secret@10.0.0.5:8080"), "root:***@10.0.0.5:8080");
  EXPECT_EQ(MaskCredentials("root:p@ss:w@rd@10.0.0.5"), "root:***@10.0.0.5");
  EXPECT_EQ(MaskCredentials(":secret@host"), ":***@host");
  EXPECT_EQ(MaskCredentials("root@host"), "root@host");
  EXPECT_EQ(MaskCredentials("10.0.0.5:8080"), "10.0.0.5:8080");
  EXPECT_EQ(MaskCredentials("/dev/pts/3"), "/dev/pts/3");
  EXPECT_EQ(RedactCredentials("GET http://root:secret@h/x failed; root:secret@h", "root:secret@h"),
            "GET http://root:***@h/x failed; root:***@h");
  EXPECT_EQ(RedactCredentials("secret", "h"), "secret");
}

TEST(Commands, NeverEchoAPasswordGivenInTheDeviceString) {
  const Result ports = Vmio({"ports", "iodevice", "operator:hunter2@127.0.0.1:8080"});
  EXPECT_EQ(ports.code, 0);
  EXPECT_EQ(ports.out,
            "VMIO.IODevice at operator:***@127.0.0.1:8080: 0 ports\n"
            "index  name  direction  type  value\n");
  const Result watch = Vmio({"watch", "VMIO.IODevice", "operator:hunter2@h", "--count", "2", "--interval=20"});
  EXPECT_EQ(watch.code, 0);
  EXPECT_EQ(watch.out, "watching VMIO.IODevice at operator:***@h: 0 ports, every 20 ms\n");
  const Result usage = Vmio({"get", "iodevice", "operator:hunter2@h", "first"});
  EXPECT_EQ(usage.code, 2);
  for (const Result* r : {&ports, &watch, &usage}) {
    EXPECT_EQ(r->out.find("hunter2"), std::string::npos);
    EXPECT_EQ(r->err.find("hunter2"), std::string::npos);
  }
}

TEST(Commands, TakeClassesByProgidOrShortNameInAnyCase) {
  const Result classes = Vmio({"classes"});
  EXPECT_EQ(classes.code, 0);
  for (const ClassInfo& c : vmio::Classes()) {
    EXPECT_NE(classes.out.find(std::string(c.progid) + "  "), std::string::npos) << c.progid;
    EXPECT_NE(classes.out.find(std::string(c.short_name) + "\n"), std::string::npos) << c.short_name;
  }
  for (const char* name : {"VMIO.IODevice", "vmio.iodevice", "IODevice", "iodevice"}) {
    const Result get = Vmio({"get", name, "host", "0"});
    EXPECT_EQ(get.code, 0) << name << get.err;
    EXPECT_EQ(get.out, "(empty)\n");
  }
  EXPECT_EQ(Vmio({"set", "iodevice", "host", "3", "TRUE"}).code, 0);
}

TEST(Commands, ReportUsageErrorsWithExitCode2) {
  const Result none = Vmio({});
  EXPECT_EQ(none.code, 2);
  EXPECT_NE(none.err.find("usage: vmio COMMAND"), std::string::npos);

  const struct {
    std::vector<std::string> args;
    std::string err;
  } cases[] = {
      {{"frobnicate"}, "vmio: unknown command 'frobnicate' (vmio --help lists them)\n"},
      {{"ports", "iodevice"}, "vmio ports: missing arguments\nusage: vmio ports CLASS DEVICE\n"},
      {{"classes", "extra"}, "vmio classes: too many arguments\nusage: vmio classes\n"},
      {{"ports", "nosuch", "h"},
       "vmio ports: unknown class 'nosuch' (vmio classes lists them)\nusage: vmio ports CLASS DEVICE\n"},
      {{"get", "iodevice", "h", "1.5"},
       "vmio get: INDEX must be a whole number, not '1.5'\nusage: vmio get CLASS DEVICE INDEX\n"},
      {{"set", "iodevice", "h", "0", "on"},
       "vmio set: the new state is true or false, not 'on'\nusage: vmio set CLASS DEVICE INDEX true|false\n"},
      {{"watch", "iodevice", "h", "--count", "0"},
       "vmio watch: --count takes a whole number of at least 1, not '0'\nusage: vmio watch CLASS DEVICE [--interval "
       "MS] [--count N]\n"},
      {{"watch", "iodevice", "h", "--interval"},
       "vmio watch: --interval needs a value\nusage: vmio watch CLASS DEVICE [--interval MS] [--count N]\n"},
      {{"ports", "iodevice", "h", "--count", "2"},
       "vmio ports: unknown option '--count'\nusage: vmio ports CLASS DEVICE\n"},
  };
  for (const auto& c : cases) {
    const Result r = Vmio(c.args);
    EXPECT_EQ(r.code, 2) << c.err;
    EXPECT_EQ(r.err, c.err);
    EXPECT_EQ(r.out, "");
  }
}

TEST(Commands, ExplainThemselvesWithHelp) {
  const Result overview = Vmio({"--help"});
  EXPECT_EQ(overview.code, 0);
  for (const char* command : {"classes", "ports", "get", "set", "watch", "shell", "demo"}) {
    EXPECT_NE(overview.out.find(std::string("\n  ") + command), std::string::npos) << command;
    const Result help = Vmio({command, "--help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_EQ(help.out.rfind(std::string("usage: vmio ") + command, 0), 0u) << help.out;
  }
  // --help wins over arguments that would be a usage error.
  EXPECT_EQ(Vmio({"set", "x", "--help"}).code, 0);
}

TEST(Commands, ShellReadsTheGivenInput) {
  const Result r = Vmio({"shell"}, "new VMIO.IODevice\nports\n");
  EXPECT_EQ(r.code, 0);
  EXPECT_EQ(r.out, "ok\ni4:0\n");
}

}  // namespace
}  // namespace vmio::cli
