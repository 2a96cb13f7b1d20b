#include "shell.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <sstream>
#include <streambuf>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/counting_target.h"
#include "vmio/events.h"

namespace vmio::cli {
namespace {

// A stream buffer that counts flushes, to see each result line leave at once.
class CountingBuffer : public std::stringbuf {
 public:
  int flushes = 0;

 protected:
  int sync() override {
    ++flushes;
    return std::stringbuf::sync();
  }
};

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

std::vector<std::string> RunScript(const std::string& script) {
  std::istringstream in(script);
  std::ostringstream out;
  EXPECT_EQ(RunShell(in, out), 0);
  EXPECT_TRUE(out.str().empty() || out.str().back() == '\n');
  return Lines(out.str());
}

const std::string kInvalid = "error 5 Invalid procedure call or argument";
const std::string kNotSet = "error 91 Object variable or With block variable not set";
const std::string kNotSupported = "error 438 Object doesn't support this property or method";

TEST(Shell, DrivesTheInterfacePlaceholderThroughEveryDeviceCommand) {
  const auto lines = RunScript(
      "new VMIO.IODevice\n"
      "connect operator:se\\x63ret@127.0.0.1:8080\n"
      "ports\n"
      "direction 0\n"
      "type 0\n"
      "name 0\n"
      "get 0\n"
      "set 0 bool:true\n"
      "set 1 str:with blanks \n"
      "call Nothing i4:1\n"
      "item-id i4:1\n"
      "item-name str:key\n"
      "disconnect\n"
      "release\n");
  EXPECT_EQ(lines, (std::vector<std::string>{"ok", "ok", "i4:0", "i4:0", "i4:0", "str:", "empty", "ok", "ok",
                                             kNotSupported, kNotSupported, kNotSupported, "ok", "ok"}));
}

TEST(Shell, AnswersBadInputWithErrorLinesAndKeepsGoing) {
  const auto lines = RunScript(
      "frobnicate\n"
      "ports\n"
      "new VMIO.NoSuchThing\n"
      "new\n"
      "new VMIO.IODevice extra\n"
      "new vmio.iodevice\n"
      "get\n"
      "get x\n"
      "get 2147483648\n"
      "get 1.5\n"
      "ports now\n"
      "set 0\n"
      "set 0 1\n"
      "set 0 i4:1 i4:2\n"
      "set 0 u1:300\n"
      "connect bad\\qescape\n"
      "call\n"
      "item-id 1\n"
      "sleep -1\n"
      "PORTS\n"
      "ports\n");
  EXPECT_EQ(lines, (std::vector<std::string>{kInvalid, kNotSet,  "error 429 ActiveX component can't create object",
                                             kInvalid, kInvalid, "ok",
                                             kInvalid, kInvalid, kInvalid,
                                             kInvalid, kInvalid, kInvalid,
                                             kInvalid, kInvalid, kInvalid,
                                             kInvalid, kInvalid, kInvalid,
                                             kInvalid, kInvalid, "i4:0"}));
}

TEST(Shell, NumbersObjectsInOrderOfCreationAndReleasesTheCurrentOne) {
  const auto lines = RunScript(
      "release\n"
      "new VMIO.IODevice\n"
      "new VMIO.IODevice\n"
      "new VMIO.IODevice\n"
      "use 2\n"
      "release\n"
      "ports\n"
      "release\n"
      "use 2\n"
      "ports\n"
      "use 3\n"
      "ports\n"
      "use 0\n"
      "use 4\n"
      "new VMIO.IODevice\n"
      "use 4\n"
      "ports\n");
  EXPECT_EQ(lines, (std::vector<std::string>{kNotSet, "ok", "ok", "ok", "ok", "ok", kNotSet, kNotSet, "ok", kNotSet,
                                             "ok", "i4:0", kInvalid, kInvalid, "ok", "ok", "i4:0"}));
}

TEST(Shell, WritesOneFlushedLinePerCommandAndNothingForBlankOrCommentLines) {
  std::istringstream in(
      "\n"
      "   \n"
      "\t\n"
      "# a comment\n"
      "   # an indented comment\n"
      "new VMIO.IODevice\r\n"
      "  ports  \r\n"
      "\r\n"
      "bogus # not a comment\n"
      "get 0");  // the last line may lack its line feed
  CountingBuffer buffer;
  std::ostream out(&buffer);
  EXPECT_EQ(RunShell(in, out), 0);
  EXPECT_EQ(Lines(buffer.str()), (std::vector<std::string>{"ok", "i4:0", kInvalid, "empty"}));
  EXPECT_EQ(buffer.flushes, 4);
}

// Input made up as it is read: a script whose second line is `lineBytes` long, without the
// test holding that line anywhere.
class LongLineInput : public std::streambuf {
 public:
  LongLineInput(std::string head, char fill, size_t lineBytes, std::string tail)
      : head_(std::move(head)), fill_(fill), left_(lineBytes), tail_(std::move(tail)) {}

 protected:
  int_type underflow() override {
    if (!head_.empty()) {
      current_ = std::exchange(head_, {});
    } else if (left_ > 0) {
      current_.assign(std::min<size_t>(left_, 1 << 16), fill_);
      left_ -= current_.size();
    } else if (!tail_.empty()) {
      current_ = std::exchange(tail_, {});
    } else {
      return traits_type::eof();
    }
    setg(current_.data(), current_.data(), current_.data() + current_.size());
    return traits_type::to_int_type(current_.front());
  }

 private:
  std::string head_;
  char fill_;
  size_t left_;
  std::string tail_;
  std::string current_;
};

int64_t PeakResidentBytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return int64_t{usage.ru_maxrss} * 1024;
}

TEST(Shell, AnswersAnOverlongLineWithAnErrorWithoutHoldingIt) {
  constexpr size_t kLine = 100u << 20;
  const int64_t before = PeakResidentBytes();
  for (const auto& [head, fill, expected] : {
           std::tuple{"new VMIO.IODevice\nconnect ", 'x', std::vector<std::string>{"ok", kInvalid, "i4:0"}},
           std::tuple{"new VMIO.IODevice\n#", 'c', std::vector<std::string>{"ok", "i4:0"}},  // still a comment
       }) {
    LongLineInput input(head, fill, kLine, "\nports\n");
    std::istream in(&input);
    std::ostringstream out;
    EXPECT_EQ(RunShell(in, out), 0);
    EXPECT_EQ(Lines(out.str()), expected);
  }
  const int64_t grown = PeakResidentBytes() - before;
  std::printf("peak resident growth for a %zu-byte line: %lld KiB\n", kLine, static_cast<long long>(grown >> 10));
  EXPECT_LT(grown, 16 << 20);
}

TEST(Shell, SleepWaitsAndLetsTimersRun) {
  const auto target = std::make_shared<test::CountingTarget>();
  const int32_t id = StartCallbackTimer(target, 20);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(RunScript("sleep 200\nsleep 0\n"), (std::vector<std::string>{"ok", "ok"}));
  const auto elapsed = std::chrono::steady_clock::now() - start;
  StopCallbackTimer(id);
  // The wait counts whole milliseconds of the tick, so it may end within the 200th.
  EXPECT_GE(elapsed, std::chrono::milliseconds(199));
  EXPECT_LT(elapsed, std::chrono::milliseconds(1000));
  EXPECT_GE(target->calls, 5);  // about 10 periods; timing on a busy machine is loose
  EXPECT_LE(target->calls, 10);
}

}  // namespace
}  // namespace vmio::cli
