#include "http_sim_args.h"

#include <charconv>

namespace vmio::sim::cli {

std::optional<HttpSimArgs> ParseHttpSimArgs(const std::vector<std::string>& args, std::string& error) {
  HttpSimArgs out;
  std::string auth_name;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    const bool takes_value = arg == "--listen" || arg == "--user" || arg == "--password" || arg == "--auth";
    if (!takes_value) {
      out.rest.push_back(arg);
      continue;
    }
    if (i + 1 >= args.size()) {
      error = arg + " needs a value";
      return std::nullopt;
    }
    const std::string& value = args[++i];
    if (arg == "--listen") {
      const size_t colon = value.rfind(':');
      const char* end = value.data() + value.size();
      const auto [ptr, ec] = colon == std::string::npos ? std::from_chars(end, end, out.port)
                                                        : std::from_chars(value.data() + colon + 1, end, out.port);
      if (colon == std::string::npos || ec != std::errc() || ptr != end || out.port < 0 || out.port > 65535) {
        error = "--listen wants HOST:PORT, not '" + value + "'";
        return std::nullopt;
      }
      out.host = value.substr(0, colon);
    } else if (arg == "--user") {
      out.auth.user = value;
    } else if (arg == "--password") {
      out.auth.password = value;
    } else {
      auth_name = value;
    }
  }
  if (!auth_name.empty() && auth_name != "basic" && auth_name != "digest") {
    error = "--auth wants basic or digest, not '" + auth_name + "'";
    return std::nullopt;
  }
  if (!out.auth.user.empty() || !out.auth.password.empty()) {
    out.auth.scheme = auth_name == "digest" ? AuthScheme::Digest : AuthScheme::Basic;
  } else if (!auth_name.empty()) {
    error = "--auth needs --user and --password";
    return std::nullopt;
  }
  return out;
}

std::optional<bool> ParseOnOff(const std::string& word) {
  if (word == "on" || word == "1") return true;
  if (word == "off" || word == "0") return false;
  return std::nullopt;
}

}  // namespace vmio::sim::cli
