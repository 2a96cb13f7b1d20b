#include "aviosys_sim.h"

#include <utility>

namespace vmio::sim {
namespace {

constexpr char kUnknown[] = "HTTPCMD_UNKNOWPIN";
constexpr int kFixedModelPorts = 8;
constexpr int kFirstInputPin = 51;  // inputs exist only on the fixed model

// The pin number of "Pnn" at the start of text (consumed), or -1.
int ReadPin(std::string& text) {
  if (text.size() < 2 || text[0] != 'P') return -1;
  size_t digits = 1;
  while (digits < text.size() && text[digits] >= '0' && text[digits] <= '9') ++digits;
  if (digits == 1 || digits > 4) return -1;
  const int pin = std::stoi(text.substr(1, digits - 1));
  text.erase(0, digits);
  return pin;
}

}  // namespace

AviosysSim::AviosysSim(AviosysSimOptions options)
    : HttpSim(options.auth), options_(std::move(options)), first_socket_pin_(options_.fixed_model ? 61 : 60) {
  points_.Add(PointKind::Input, options_.fixed_model ? kFixedModelPorts : 0);
  points_.Add(PointKind::Output, options_.fixed_model ? kFixedModelPorts : options_.sockets);
}

HttpReply AviosysSim::Handle(const HttpRequestInfo& request) {
  if (request.path != "/Set.cmd" || !request.query.starts_with("CMD=")) return {404, "Not Found"};
  const std::string command = request.query.substr(4);
  if (command.starts_with("GetPortName") && options_.names_fail && !options_.fixed_model) return {404, "Not Found"};
  std::string body = Answer(command);
  if (options_.html) body = "<html>" + body + "</html>";
  if (options_.extra_line) body += "\r\nPower Controller";
  return {200, body, "text/html"};
}

std::string AviosysSim::Answer(const std::string& command) {
  const int sockets = points_.Outputs();
  if (command == "GetPowerNum" && !options_.fixed_model) {
    return options_.power_num_reply.empty() ? std::to_string(sockets) : options_.power_num_reply;
  }
  if (command == "GetPower") return States(PointKind::Output, first_socket_pin_);
  if (command == "GetIo" && options_.fixed_model) return States(PointKind::Input, kFirstInputPin);
  if (command.starts_with("SetPower")) return SetPower(command.substr(8));
  if (command.size() == 12 && command.starts_with("GetPortName") && !options_.fixed_model) {
    const size_t socket = static_cast<size_t>(static_cast<unsigned char>(command[11]) - 'A');
    if (socket < static_cast<size_t>(sockets)) {
      return command + "=" + (socket < options_.names.size() ? options_.names[socket] : std::string()) + ",";
    }
  }
  return kUnknown;
}

std::string AviosysSim::States(PointKind kind, int first_pin) const {
  std::string text;
  for (int n = 1; n <= points_.Count(kind); ++n) {
    if (n > 1) text += ',';
    text += "P" + std::to_string(first_pin + n - 1) + "=" + std::to_string(points_.Get(kind, n));
  }
  return text;
}

// "+P60=1+P61=0": every assignment is checked before any is made.
std::string AviosysSim::SetPower(const std::string& assignments) {
  std::vector<std::pair<int, int>> changes;
  std::string rest = assignments;
  while (!rest.empty()) {
    if (rest[0] != '+') return kUnknown;
    rest.erase(0, 1);
    const int pin = ReadPin(rest);
    const int socket = pin - first_socket_pin_ + 1;
    if (pin < first_socket_pin_ || socket > points_.Outputs()) return kUnknown;
    if (rest.size() < 2 || rest[0] != '=' || (rest[1] != '0' && rest[1] != '1')) return kUnknown;
    changes.emplace_back(socket, rest[1] - '0');
    rest.erase(0, 2);
  }
  if (changes.empty()) return kUnknown;
  std::string echo;
  for (const auto& [socket, value] : changes) {
    points_.SetOutput(socket, value);
    if (!echo.empty()) echo += ',';
    echo += "P" + std::to_string(first_socket_pin_ + socket - 1) + "=" + std::to_string(value);
  }
  return echo;
}

}  // namespace vmio::sim
