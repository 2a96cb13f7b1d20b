// The option reading every `vmio-sim MAKE` shares: what reaches the simulator, and what the
// person at the terminal sees when the command line is wrong.
#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "control_lines.h"
#include "http_sim_args.h"

namespace vmio::sim::cli {
namespace {

constexpr HttpSimMake kMake{
    .name = "demo",
    .progid = "VMIO.Demo",
    .help = "a demo",
    .options_help = "usage: vmio-sim demo [options]\n  --flag  a flag\n  --level N  a number\n",
    .control_help = "  poke                      pokes\n",
};

struct Outcome {
  std::optional<HttpSimArgs> common;
  int exit_code = -1;
  std::string out, err;
  bool flag = false;
  int level = -1;
};

Outcome Read(const HttpSimMake& make, const std::vector<std::string>& args, const HttpAuth& fixture = {}) {
  Outcome o;
  const auto own = [&o](const std::vector<std::string>& a, size_t& i) {
    if (a[i] == "--flag") {
      o.flag = true;
      return true;
    }
    if (a[i] != "--level") return false;
    o.level = ParseCount(TakeValue(a, i));
    if (o.level > 9) throw std::invalid_argument("--level wants 0 to 9");
    return true;
  };
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  o.common = ReadHttpSimOptions(make, fixture, args, own, o.exit_code);
  o.out = testing::internal::GetCapturedStdout();
  o.err = testing::internal::GetCapturedStderr();
  return o;
}

TEST(SimCommandLine, CommonAndOwnOptionsReachTheSimulator) {
  Outcome o = Read(kMake, {"--level", "3", "--listen", "0.0.0.0:8080", "--user", "u", "--flag", "--password", "p"});
  ASSERT_TRUE(o.common);
  EXPECT_EQ(o.common->host, "0.0.0.0");
  EXPECT_EQ(o.common->port, 8080);
  EXPECT_EQ(o.common->auth.user, "u");
  EXPECT_EQ(o.common->auth.password, "p");
  EXPECT_EQ(o.common->auth.scheme, AuthScheme::Basic);
  EXPECT_TRUE(o.flag);
  EXPECT_EQ(o.level, 3);
  EXPECT_EQ(o.out + o.err, "");

  // A make whose devices challenge with Digest keeps that default; --auth still overrides it.
  HttpSimMake digest = kMake;
  digest.default_auth = AuthScheme::Digest;
  EXPECT_EQ(Read(digest, {"--user", "u", "--password", "p"}).common->auth.scheme, AuthScheme::Digest);
  EXPECT_EQ(Read(digest, {"--user", "u", "--auth", "basic"}).common->auth.scheme, AuthScheme::Basic);
  EXPECT_EQ(Read(digest, {}).common->auth.scheme, AuthScheme::None);
  EXPECT_NE(HttpSimHelp(digest).find("(default digest)"), std::string::npos);

  // Without credentials on the command line the fixture's stand; --auth changes or drops them.
  const HttpAuth fixture{AuthScheme::Digest, "operator", "secret"};
  EXPECT_EQ(Read(kMake, {}, fixture).common->auth.password, "secret");
  EXPECT_EQ(Read(kMake, {"--auth", "basic"}, fixture).common->auth.scheme, AuthScheme::Basic);
  EXPECT_EQ(Read(kMake, {"--auth", "basic"}, fixture).common->auth.user, "operator");
  EXPECT_EQ(Read(kMake, {"--auth", "none"}, fixture).common->auth.scheme, AuthScheme::None);
  EXPECT_EQ(Read(kMake, {"--user", "u"}, fixture).common->auth.password, "");

  o = Read(kMake, {"--listen", "[::1]:0"});
  EXPECT_EQ(o.common->host, "[::1]");
  EXPECT_EQ(o.common->port, 0);
}

TEST(SimCommandLine, HelpAndBadOptionsEndTheRunWithTheirExitCodes) {
  Outcome o = Read(kMake, {"--flag", "--help", "--bogus"});
  EXPECT_FALSE(o.common);
  EXPECT_EQ(o.exit_code, 0);
  EXPECT_EQ(o.out, HttpSimHelp(kMake));
  EXPECT_NE(o.out.find("--listen HOST:PORT"), std::string::npos);
  EXPECT_NE(o.out.find("Lines on standard input:\n" + std::string(kPointControlHelp) + "  poke "), std::string::npos);

  const std::string usage = HttpSimUsage(kMake);
  const auto bad = [&](const std::vector<std::string>& args, const std::string& message) {
    const Outcome b = Read(kMake, args);
    EXPECT_FALSE(b.common) << message;
    EXPECT_EQ(b.exit_code, 2) << message;
    EXPECT_EQ(b.out, "") << message;
    EXPECT_EQ(b.err, "vmio-sim demo: " + message + "\n" + usage);
  };
  bad({"--bogus"}, "bad argument '--bogus'");
  bad({"--flag", "--level"}, "bad argument '--level'");
  bad({"--level", "3x"}, "bad argument '3x'");
  bad({"--level", "-1"}, "bad argument '-1'");
  bad({"--level", "10"}, "--level wants 0 to 9");
  bad({"--listen", "8080"}, "--listen wants HOST:PORT, not '8080'");
  bad({"--listen", "h:65536"}, "--listen wants HOST:PORT, not 'h:65536'");
  bad({"--listen", "h:"}, "--listen wants HOST:PORT, not 'h:'");
  bad({"--listen"}, "bad argument '--listen'");
  bad({"--user", "u", "--auth", "ntlm"}, "--auth wants basic, digest or none, not 'ntlm'");
  bad({"--auth", "digest"}, "--auth needs --user and --password");
}

TEST(SimControlLines, PointLinesWorkOnEveryMakeAndTheRestGoToItsOwn) {
  PointBank points;
  points.Add(PointKind::Input, 2);
  points.Add(PointKind::Output, "Siren");
  std::string poked;
  const OwnControl own = [&](const std::string& word, const std::string& rest) -> std::optional<std::string> {
    if (word != "poke") return std::nullopt;
    if (rest == "hard") throw std::invalid_argument("too hard");
    poked = rest;
    return "poked";
  };
  const auto answer = [&](const std::string& line) { return AnswerControlLine(&points, own, line); };
  EXPECT_EQ(answer("input 2 on"), "inputs: 1=off 2=on outputs: 1=off");
  EXPECT_EQ(answer("output 1 7"), "inputs: 1=off 2=on outputs: 1=7");
  EXPECT_EQ(points.Get("Siren"), 7);
  EXPECT_EQ(answer("input 2 0"), "inputs: 1=off 2=off outputs: 1=7");
  EXPECT_EQ(answer("outputs"), "outputs: 1=7");
  EXPECT_EQ(answer("show"), "inputs: 1=off 2=off outputs: 1=7");
  EXPECT_EQ(answer("input 3 on"), "error: no input 3");
  EXPECT_EQ(answer("input 1"), "error: want input N on|off|VALUE");
  EXPECT_EQ(answer("input x on"), "error: bad argument 'x'");
  EXPECT_EQ(answer("poke gently"), "poked");
  EXPECT_EQ(poked, "gently");
  EXPECT_EQ(answer("poke hard"), "error: too hard");
  EXPECT_EQ(answer("prod"), "error: unknown command 'prod' (see --help)");
  // A make without points (an instrument on a serial line) has only its own lines.
  EXPECT_EQ(AnswerControlLine(nullptr, own, "show"), "error: unknown command 'show' (see --help)");
}

}  // namespace
}  // namespace vmio::sim::cli
