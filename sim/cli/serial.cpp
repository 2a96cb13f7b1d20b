// vmio-sim serial: an instrument answering text commands on a pseudo-terminal.
#include <memory>
#include <string>
#include <vector>

#include "control_lines.h"
#include "serial_sim.h"
#include "serve.h"
#include "sim_makes.h"
#include "vmio/variant.h"

namespace vmio::sim::cli {
namespace {

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

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  throw BadArgument(std::string(1, c));
}

std::string Unescape(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      out += text[i];
      continue;
    }
    if (++i >= text.size()) throw BadArgument(text);
    switch (text[i]) {
      case 'r':
        out += '\r';
        break;
      case 'n':
        out += '\n';
        break;
      case 't':
        out += '\t';
        break;
      case '\\':
        out += '\\';
        break;
      case 'x':
        if (i + 2 >= text.size()) throw BadArgument(text);
        out += static_cast<char>(HexDigit(text[i + 1]) * 16 + HexDigit(text[i + 2]));
        i += 2;
        break;
      default:
        throw BadArgument(text);
    }
  }
  return out;
}

std::string Escape(const std::string& bytes) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (const char c : bytes) {
    const auto b = static_cast<unsigned char>(c);
    if (c == '\r')
      out += "\\r";
    else if (c == '\n')
      out += "\\n";
    else if (c == '\t')
      out += "\\t";
    else if (c == '\\')
      out += "\\\\";
    else if (b < 0x20 || b >= 0x7F)
      out += std::string("\\x") + kHex[b >> 4] + kHex[b & 15];
    else
      out += c;
  }
  return out;
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
  if (word == "received" && rest.empty()) return "received: " + Escape(sim.Received());
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
