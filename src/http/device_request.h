#pragma once
// The HTTP state and request routine every HTTP driver shares.
//
// Host is the Connect string, read as vmio/device_string.h says: host[:port] becomes the
// authority of every URL; the credentials and any certificate pin go to the client beside it.
#include <optional>
#include <string>
#include <string_view>

#include "core/port_table.h"
#include "http/http_client.h"

namespace vmio {

inline constexpr char kDeviceUserAgent[] = "Vastmere IO Engine";

class HttpDevice : public PortTableDevice {
 protected:
  HttpDevice();

  // GET Path from the device: the body (code page 1252) when the transport succeeded and the
  // status is 200; nothing otherwise (an authorisation failure or a missing CGI as much as a
  // dead device). Never raises.
  std::optional<std::string> RequestPath(std::string_view Path);

  // GET Path from the device: the body decoded with code page 1252, or nothing when the
  // transport failed. Never raises. The building block of the drivers' own routines.
  std::optional<std::string> TryGet(std::string_view Path);
  // GET without judging the reply: the decoded body; the client's errors reach the caller.
  std::string Get(std::string_view Path);
  // Whether the last successful request's status line carries "200" at characters 10-12.
  bool LastStatusIs200() const;

  // The first reply of Connect, or 45001 "Unable to connect to the device" when there is none.
  static std::string RequireConnectReply(std::optional<std::string> reply);

  HTTPClient client_;

 private:
  // The URL of Path on the device, the client given the device's credentials and trust.
  std::string Url(std::string_view Path);
};

}  // namespace vmio
