#include "axis_sim.h"

#include <charconv>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace vmio::sim {
namespace {

using Query = std::map<std::string, std::string, std::less<>>;

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Form decoding: "%5C" is "\", "+" is a blank; a malformed escape stays as it is.
std::string Decode(std::string_view s) {
  std::string out;
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '+') {
      out += ' ';
    } else if (s[i] == '%' && i + 2 < s.size() && HexDigit(s[i + 1]) >= 0 && HexDigit(s[i + 2]) >= 0) {
      out += static_cast<char>(HexDigit(s[i + 1]) * 16 + HexDigit(s[i + 2]));
      i += 2;
    } else {
      out += s[i];
    }
  }
  return out;
}

Query ParseQuery(std::string_view query) {
  Query q;
  while (!query.empty()) {
    const size_t amp = query.find('&');
    const std::string_view pair = query.substr(0, amp);
    const size_t eq = pair.find('=');
    q[Decode(pair.substr(0, eq))] = eq == std::string_view::npos ? std::string() : Decode(pair.substr(eq + 1));
    query = amp == std::string_view::npos ? std::string_view() : query.substr(amp + 1);
  }
  return q;
}

std::vector<std::string_view> SplitAt(std::string_view s, char sep) {
  std::vector<std::string_view> pieces;
  for (size_t start = 0;;) {
    const size_t end = s.find(sep, start);
    pieces.push_back(s.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
    if (end == std::string_view::npos) return pieces;
    start = end + 1;
  }
}

// A plain positive decimal number, or 0.
int PositiveNumber(std::string_view s) {
  int n = 0;
  const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), n);
  return ec == std::errc() && end == s.data() + s.size() && n > 0 ? n : 0;
}

HttpReply BadRequest(const std::string& why) { return {400, "Error: " + why + "\n"}; }

bool IsParamCgi(std::string_view path) {
  return path == "/axis-cgi/view/param.cgi" || path == "/axis-cgi/operator/param.cgi" ||
         path == "/axis-cgi/admin/param.cgi";
}

}  // namespace

AxisSim::AxisSim(AxisSimOptions options) : HttpSim(options.auth), options_(std::move(options)) {
  std::string layout = options_.ioport_group ? options_.port_layout : std::string();
  if (layout.empty())
    layout = std::string(static_cast<size_t>(options_.inputs), 'i') +
             std::string(static_cast<size_t>(options_.outputs), 'o');
  for (const char c : layout) {
    const PointKind kind = c == 'o' ? PointKind::Output : PointKind::Input;
    const int number = points_.Count(kind) + 1;
    const auto& names = kind == PointKind::Output ? options_.output_names : options_.input_names;
    const auto named = names.find(number);
    points_.Add(kind, named != names.end() ? named->second : std::string());
    ports_.emplace_back(kind, number);
  }
}

const AxisSim::Port* AxisSim::Find(char kind, int number) const {
  int seen = 0;
  for (const Port& port : ports_) {
    const bool counts = kind == 'p' || (kind == 'o') == (port.first == PointKind::Output);
    if (counts && ++seen == number) return &port;
  }
  return nullptr;
}

std::vector<std::string> AxisSim::Parameters() const {
  std::vector<std::string> p;
  if (!options_.refuse_input_output_groups) {
    p.push_back("root.Input.NbrOfInputs=" + std::to_string(points_.Inputs()));
    for (int k = 1; k <= points_.Inputs(); ++k) {
      const std::string key = "root.Input.I" + std::to_string(k - 1);
      p.push_back(key + ".Name=" + points_.Name(PointKind::Input, k));
      p.push_back(key + ".Trig=closed");
    }
    p.push_back("root.Output.NbrOfOutputs=" + std::to_string(points_.Outputs()));
    for (int k = 1; k <= points_.Outputs(); ++k) {
      const std::string key = "root.Output.O" + std::to_string(k - 1);
      p.push_back(key + ".Name=" + points_.Name(PointKind::Output, k));
      p.push_back(key + ".Active=closed");
      p.push_back(key + ".PulseTime=0");
    }
  }
  if (options_.ioport_group) {
    for (size_t i = 0; i < ports_.size(); ++i) {
      const std::string key = "root.IOPort.I" + std::to_string(i);
      const auto [kind, number] = ports_[i];
      const std::string& name = points_.Name(kind, number);
      p.push_back(key + ".Configurable=yes");
      p.push_back(key + ".Direction=" + (kind == PointKind::Output ? "output" : "input"));
      p.push_back(key + ".Input.Name=" + name);
      p.push_back(key + ".Input.Trig=closed");
      p.push_back(key + ".Output.Name=" + name);
      p.push_back(key + ".Output.Active=closed");
    }
  }
  return p;
}

HttpReply AxisSim::ParamList(const std::string& groups) const {
  const std::vector<std::string> params = Parameters();
  std::string body;
  for (std::string_view group : SplitAt(groups, ',')) {
    std::string_view name = group;
    if (name.starts_with("root.")) name.remove_prefix(5);
    if (options_.fail_ioport_query && (name == "IOPort" || name.starts_with("IOPort."))) {
      return {500, "Internal Server Error\n"};
    }
    bool found = false;
    for (const std::string& line : params) {
      const std::string_view key = std::string_view(line).substr(5, line.find('=') - 5);  // without "root."
      if (key == name || (key.starts_with(name) && key.size() > name.size() && key[name.size()] == '.')) {
        body += line;
        body += '\n';
        found = true;
      }
    }
    if (!found) return {200, "# Error: Error -1 getting param in group '" + std::string(group) + "'\n"};
  }
  return {200, body};
}

HttpReply AxisSim::Check(const std::string& list, char kind) const {
  const char* key = kind == 'i' ? "input" : kind == 'o' ? "output" : "port";
  std::string body;
  for (std::string_view item : SplitAt(list, ',')) {
    const int number = PositiveNumber(item);
    const Port* port = Find(kind, number);
    if (!port) return BadRequest("invalid " + std::string(key) + " '" + std::string(item) + "'");
    body += key + std::to_string(number) + "=" + std::to_string(points_.Get(port->first, port->second)) + "\n";
  }
  return {200, body};
}

HttpReply AxisSim::Switch(const std::string& action, char kind) {
  // "N:" then states and pause lengths ("/", "\", "/300\"): the last state is the one that holds.
  const size_t colon = action.find(':');
  const int number = PositiveNumber(std::string_view(action).substr(0, colon));
  if (colon == std::string::npos || number == 0) return BadRequest("malformed action '" + action + "'");
  const std::string_view sequence = std::string_view(action).substr(colon + 1);
  const size_t last = sequence.find_last_of("/\\");
  if (last == std::string_view::npos || sequence.find_first_not_of("/\\0123456789") != std::string_view::npos) {
    return BadRequest("malformed action '" + action + "'");
  }
  const Port* port = Find(kind, number);
  if (!port || port->first != PointKind::Output) {
    return BadRequest("port " + std::to_string(number) + " is not an output");
  }
  points_.Set(PointKind::Output, port->second, sequence[last] == '/' ? 1 : 0);
  return {200, "OK\n"};
}

HttpReply AxisSim::Handle(const HttpRequestInfo& request) {
  const std::string_view path = request.path;
  const Query query = ParseQuery(request.query);
  const auto arg = [&query](std::string_view name) -> const std::string* {
    const auto it = query.find(name);
    return it == query.end() ? nullptr : &it->second;
  };
  if (options_.viewer_only && (path.starts_with("/axis-cgi/operator/") || path.starts_with("/axis-cgi/admin/"))) {
    return {401, "Unauthorized\n"};
  }
  if (IsParamCgi(path)) {
    const std::string* action = arg("action");
    if (!action || *action != "list") return BadRequest("unsupported action");
    const std::string* group = arg("group");
    return ParamList(group ? *group : std::string());
  }
  char kind = 0;
  if (path == "/axis-cgi/io/input.cgi") kind = 'i';
  if (path == "/axis-cgi/io/output.cgi") kind = 'o';
  if (path == "/axis-cgi/io/port.cgi" && options_.ioport_group) kind = 'p';
  if (kind == 0) return {404, "Not Found\n"};
  if (const std::string* list = arg("check")) return Check(*list, kind);
  if (const std::string* action = arg("action"); action && kind != 'i') return Switch(*action, kind);
  return BadRequest("no check or action");
}

}  // namespace vmio::sim
