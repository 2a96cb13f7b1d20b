// vmio-sim serial: an instrument answering text commands on a pseudo-terminal.
#include <charconv>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "serial_sim.h"
#include "serve.h"

namespace vmio::sim::cli {
namespace {

constexpr char kUsage[] =
    "usage: vmio-sim serial [options]\n"
    "  --reply CMD=REPLY         answer the command line CMD with REPLY; repeatable\n"
    "                            (default: T?=21.4\\r\\n)\n"
    "  --listen-line TEXT        send TEXT by itself at an interval (\"*B01:42.0\\r\\n\")\n"
    "  --interval MS             the interval of --listen-line (default 1000)\n"
    "  --silent                  receive commands but answer none\n"
    "Texts take the escapes \\r \\n \\t \\\\ and \\xHH.\n"
    "\n"
    "Prints \"device: PATH\" (the serial port to connect to) and plays until interrupted.\n"
    "Lines on standard input:\n"
    "  send TEXT                 send TEXT now (escapes apply)\n"
    "  silent on|off             stop or resume answering\n"
    "  received                  show every byte received so far\n";

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  throw std::invalid_argument(std::string(1, c));
}

std::string Unescape(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      out += text[i];
      continue;
    }
    if (++i >= text.size()) throw std::invalid_argument(text);
    switch (text[i]) {
      case 'r': out += '\r'; break;
      case 'n': out += '\n'; break;
      case 't': out += '\t'; break;
      case '\\': out += '\\'; break;
      case 'x':
        if (i + 2 >= text.size()) throw std::invalid_argument(text);
        out += static_cast<char>(HexDigit(text[i + 1]) * 16 + HexDigit(text[i + 2]));
        i += 2;
        break;
      default: throw std::invalid_argument(text);
    }
  }
  return out;
}

std::string Escape(const std::string& bytes) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (const char c : bytes) {
    const auto b = static_cast<unsigned char>(c);
    if (c == '\r') out += "\\r";
    else if (c == '\n') out += "\\n";
    else if (c == '\t') out += "\\t";
    else if (c == '\\') out += "\\\\";
    else if (b < 0x20 || b >= 0x7F) out += std::string("\\x") + kHex[b >> 4] + kHex[b & 15];
    else out += c;
  }
  return out;
}

int Milliseconds(const std::string& text) {
  int n = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), n);
  if (ec != std::errc() || end != text.data() + text.size() || n < 0) throw std::invalid_argument(text);
  return n;
}

std::string Control(SerialSim& sim, const std::string& line) {
  if (line.starts_with("send ")) {
    try {
      sim.Send(Unescape(line.substr(5)));
      return "ok";
    } catch (const std::exception&) {
      return "error: bad escape in '" + line + "'";
    }
  }
  if (line == "silent on" || line == "silent off") {
    sim.SetSilent(line == "silent on");
    return "ok";
  }
  if (line == "received") return "received: " + Escape(sim.Received());
  return "error: unknown command '" + line + "' (send TEXT, silent on|off, received)";
}

}  // namespace

int RunSerial(const std::vector<std::string>& args) {
  std::vector<std::pair<std::string, std::string>> replies;
  std::string listen_line;
  int interval = 1000;
  bool silent = false;
  try {
    for (size_t i = 0; i < args.size(); ++i) {
      const std::string& a = args[i];
      if (a == "--help" || a == "-h") {
        std::cout << kUsage;
        return 0;
      }
      if (a == "--silent") {
        silent = true;
        continue;
      }
      if (i + 1 >= args.size()) throw std::invalid_argument(a);
      const std::string& v = args[++i];
      if (a == "--reply") {
        const size_t eq = v.find('=');
        if (eq == std::string::npos || eq == 0) throw std::invalid_argument(v);
        replies.emplace_back(Unescape(v.substr(0, eq)), Unescape(v.substr(eq + 1)));
      } else if (a == "--listen-line") {
        listen_line = Unescape(v);
      } else if (a == "--interval") {
        interval = Milliseconds(v);
      } else {
        throw std::invalid_argument(a);
      }
    }
  } catch (const std::exception& e) {
    std::cerr << "vmio-sim serial: bad argument '" << e.what() << "'\n" << kUsage;
    return 2;
  }
  if (replies.empty()) replies.emplace_back("T?", "21.4\r\n");
  try {
    SerialSim sim;
    for (auto& [command, reply] : replies) sim.SetReply(command, SerialReply{.text = reply});
    if (!listen_line.empty()) sim.SetListenLine(listen_line, interval);
    sim.SetSilent(silent);
    return ServeUntilStopped(sim.Path(), [&sim](const std::string& line) { return Control(sim, line); });
  } catch (const std::runtime_error& e) {
    std::cerr << "vmio-sim serial: " << e.what() << "\n";
    return 1;
  }
}

}  // namespace vmio::sim::cli
