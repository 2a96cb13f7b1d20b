#include "http/device_address.h"

#include "core/errors.h"
#include "core/text_match.h"
#include "vmio/device_string.h"

namespace vmio {
namespace {

constexpr std::string_view kPinOption = "#sha256=";
constexpr std::string_view kInsecureOption = "#insecure";
constexpr size_t kSha256Bytes = 32;

// "http://" or "https://" at the start, in any case; "" otherwise.
std::string_view SchemeOf(std::string_view device) {
  for (const std::string_view scheme : {std::string_view("http://"), std::string_view("https://")}) {
    if (EqualsNoCase(device.substr(0, scheme.size()), scheme)) return device.substr(0, scheme.size());
  }
  return {};
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The 32 bytes of a SHA-256 fingerprint written in hex, colons anywhere; nothing when it is not one.
std::optional<std::string> Fingerprint(std::string_view hex) {
  std::string bytes;
  int high = -1;
  for (const char c : hex) {
    if (c == ':') continue;
    const int digit = HexDigit(c);
    if (digit < 0 || bytes.size() == kSha256Bytes) return std::nullopt;
    if (high < 0) {
      high = digit;
    } else {
      bytes.push_back(static_cast<char>(high * 16 + digit));
      high = -1;
    }
  }
  if (high >= 0 || bytes.size() != kSha256Bytes) return std::nullopt;
  return bytes;
}

}  // namespace

DeviceString SplitDeviceString(std::string_view device) {
  DeviceString parts;
  parts.scheme = SchemeOf(device);
  std::string_view rest = device.substr(parts.scheme.size());
  if (const size_t at = rest.rfind('@'); at != std::string_view::npos) {
    const std::string_view credentials = rest.substr(0, at);
    const size_t colon = credentials.find(':');
    parts.user = credentials.substr(0, colon);
    if (colon != std::string_view::npos) parts.password = credentials.substr(colon + 1);
    rest.remove_prefix(at + 1);
  }
  const size_t hash = rest.find('#');
  parts.host = rest.substr(0, hash);
  if (hash != std::string_view::npos) parts.option = rest.substr(hash);
  return parts;
}

std::string JoinDeviceString(const DeviceString& parts) {
  std::string credentials;
  if (parts.user) credentials = *parts.user + (parts.password ? ":" + *parts.password : std::string()) + "@";
  std::string device = parts.scheme + credentials + parts.host + parts.option;
  // Only a user name such as "http" followed by a password starting "//" reads as a scheme.
  if (parts.scheme.empty() && !SchemeOf(device).empty()) device = "http://" + device;
  DeviceString read_back = SplitDeviceString(device);
  if (parts.scheme.empty()) read_back.scheme.clear();
  if (read_back != parts) Raise(kInvalidProcedureCall);
  return device;
}

std::string MaskDeviceString(std::string_view device) {
  const DeviceString parts = SplitDeviceString(device);
  if (!parts.password) return std::string(device);
  return parts.scheme + *parts.user + ":***@" + parts.host + parts.option;
}

std::string DeviceAddress::Url(std::string_view path) const {
  std::string url = https ? "https://" : "http://";
  url.append(host).append(path);
  return url;
}

std::optional<DeviceAddress> ParseDeviceAddress(std::string_view device, std::string& problem) {
  const DeviceString parts = SplitDeviceString(device);
  DeviceAddress address;
  address.https = EqualsNoCase(parts.scheme, "https://");
  address.host = parts.host;
  HttpAccess& access = address.access;
  access.user = parts.user.value_or("");
  access.password = parts.password.value_or("");
  // "@host" alone asks nothing of the device, as no credentials at all.
  access.authenticate = !access.user.empty() || !access.password.empty();
  if (parts.option.empty()) return address;
  if (parts.option == kInsecureOption) {
    access.insecure = true;
  } else if (parts.option.starts_with(kPinOption)) {
    const std::optional<std::string> pin = Fingerprint(std::string_view(parts.option).substr(kPinOption.size()));
    if (!pin) {
      problem = "the certificate fingerprint is not 64 hex digits: " + parts.option;
      return std::nullopt;
    }
    access.certificate_sha256 = *pin;
  } else {
    problem = "unknown device string option " + parts.option + " (#sha256=HEX or #insecure)";
    return std::nullopt;
  }
  if (!address.https) {
    problem = parts.option.substr(0, parts.option.find('=')) + " needs an https:// device string";
    return std::nullopt;
  }
  return address;
}

std::string UrlForTrace(std::string_view url, const HttpAccess& access) {
  if (!access.authenticate) return std::string(url);
  const size_t scheme = url.find("://");
  const size_t start = scheme == std::string_view::npos ? 0 : scheme + 3;
  std::string shown(url.substr(0, start));
  shown.append(access.user).append(access.password.empty() ? "@" : ":***@").append(url.substr(start));
  return shown;
}

}  // namespace vmio
