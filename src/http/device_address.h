#pragma once
// A device string read as an HTTP device's address (vmio/device_string.h has the rule): where
// requests go, and the credentials and certificate trust that travel beside the URL, never in
// it. Pure functions; every reader of a device string (the HTTP devices, the trace, the CLI)
// goes through them.
#include <optional>
#include <string>
#include <string_view>

#include "http/http_session.h"

namespace vmio {

struct DeviceAddress {
  bool https = false;
  std::string host;  // host[:port], as written
  HttpAccess access;

  // "http://" or "https://", host[:port], then path (which starts with "/").
  std::string Url(std::string_view path) const;
};

// The address, or nothing with problem saying why (an unknown '#' option, a malformed
// fingerprint, a certificate option on plain http). The problem text never holds the password.
std::optional<DeviceAddress> ParseDeviceAddress(std::string_view device, std::string& problem);

// The URL as a trace shows it: "user:***@" put after its scheme when the access carries
// credentials, "user@" when the password is empty.
std::string UrlForTrace(std::string_view url, const HttpAccess& access);

}  // namespace vmio
