// vmio-sim serial: an instrument answering text commands on a pseudo-terminal.
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "control_lines.h"
#include "escape_text.h"
#include "serial_sim.h"
#include "serve.h"
#include "sim_makes.h"
#include "vmio/variant.h"

namespace vmio::sim::cli {
namespace {

using vmio::cli::EscapeText;
using vmio::cli::UnescapeText;

constexpr char kUsage[] =
    "usage: vmio-sim serial [options]\n"
    "  --reply CMD=REPLY         answer the command line CMD with REPLY; repeatable\n"
    "                            (default: T?=21.4\\r)\n"
    "  --listen-line TEXT        send TEXT by itself at an interval (\"*B01:42.0\\r\\n\")\n"
    "  --interval MS             the interval of --listen-line (default 1000)\n"
    "  --silent                  receive commands but answer none\n"
    "Texts take the escapes \\r \\n \\t \\\\ and \\xHH.\n"
    "\n"
    "With no options it is the instrument `vmio demo` runs against, which has sent\n"
    "*B01:42.0\\r\\n by itself before the driver opens the line.\n"
    "Prints \"device: PATH\" (the serial port to connect to) and plays until interrupted.\n"
    "Lines on standard input:\n"
    "  send TEXT                 send TEXT now (escapes apply)\n"
    "  silent on|off             stop or resume answering\n"
    "  received                  show every byte received so far\n";

// The shell protocol's escapes, so texts are written alike in both.
std::string Unescape(const std::string& text) {
  std::optional<std::string> bytes = UnescapeText(text);
  if (!bytes) throw BadArgument(text);
  return std::move(*bytes);
}

std::optional<std::string> Control(SerialSim& sim, const std::string& word, const std::string& rest) {
  if (word == "send") {
    sim.Send(Unescape(rest));
    return "ok";
  }
  if (word == "silent") {
    const std::optional<bool> on = ParseOnOff(rest);
    if (!on) throw BadArgument(rest);
    sim.SetSilent(*on);
    return "ok";
  }
  if (word == "received" && rest.empty()) return "received: " + EscapeText(sim.Received());
  return std::nullopt;
}

// Replies end in CR alone: an LF left behind would reach the listening port's buffer.
const std::pair<std::string, std::string> kFixtureReply{"T?", "21.4\r"};
// A line the instrument sent by itself, waiting in the port for the driver's listening port.
constexpr char kFixtureLine[] = "*B01:42.0\r\n";

// The fixture, with other replies when there are any.
std::shared_ptr<SerialSim> StartFixture(const std::vector<std::pair<std::string, std::string>>& replies = {}) {
  auto instrument = std::make_shared<SerialSim>(LineStart::Raw);
  instrument->Send(kFixtureLine);
  for (const auto& [command, reply] : replies.empty() ? std::vector{kFixtureReply} : replies) {
    instrument->SetReply(command, {.text = reply});
  }
  return instrument;
}

int Run(const std::vector<std::string>& args) {
  std::vector<std::pair<std::string, std::string>> replies;
  std::string listen_line;
  int interval = 1000;
  bool silent = false;
  const auto read_option = [&](const std::vector<std::string>& a, size_t& i) {
    const std::string& option = a[i];
    if (option == "--silent") {
      silent = true;
    } else if (option == "--reply") {
      const std::string& v = TakeValue(a, i);
      const size_t eq = v.find('=');
      if (eq == std::string::npos || eq == 0) return false;
      replies.emplace_back(Unescape(v.substr(0, eq)), Unescape(v.substr(eq + 1)));
    } else if (option == "--listen-line") {
      listen_line = Unescape(TakeValue(a, i));
    } else if (option == "--interval") {
      interval = ParseCount(TakeValue(a, i));
    } else {
      return false;
    }
    return true;
  };
  if (const std::optional<int> exit_code = ReadOptions("serial", kUsage, kUsage, args, read_option)) return *exit_code;
  std::shared_ptr<SerialSim> sim;
  const auto start = [&] {
    sim = StartFixture(replies);
    if (!listen_line.empty()) sim->SetListenLine(listen_line, interval);
    sim->SetSilent(silent);
    return sim->Path();
  };
  const OwnControl control = [&sim](const std::string& word, const std::string& rest) {
    return Control(*sim, word, rest);
  };
  return StartAndServe("serial", start,
                       [&](const std::string& line) { return AnswerControlLine(nullptr, control, line); });
}

const bool kRegistered = RegisterMake({
    .progid = "VMIO.RS232",
    .start =
        [] {
          const auto instrument = StartFixture();
          return RunningDevice{instrument, instrument->Path()};
        },
    .prepare =
        [](Object& rs232) {
          const Variant listener[] = {Variant("\r\n")};                   // port 0: the last line it sent by itself
          const Variant asked[] = {Variant(kFixtureReply.first + "\r")};  // port 1: asked for
          rs232.Call("AddCommand", listener);
          rs232.Call("AddCommand", asked);
        },
    .name = "serial",
    .help = "an instrument answering text commands on a pseudo-terminal",
    .run = &Run,
});

}  // namespace
}  // namespace vmio::sim::cli
