#pragma once
// The HTTP state every HTTP driver shares, and its one exchange with a device.
//
// Host is the Connect string, read as vmio/device_string.h says: host[:port] becomes the
// authority of every URL; the credentials and any certificate pin go to the client beside it.
#include <optional>
#include <string>
#include <string_view>

#include "devices/common/port_table_device.h"
#include "http/http_client.h"

namespace vmio {

inline constexpr char kDeviceUserAgent[] = "Vastmere IO Engine";

class HttpDevice : public PortTableDevice {
 protected:
  HttpDevice();

  // GET Path from the device: the reply, or the client's error, as a value. Never raises
  // the client's errors but 67 "Too many files", which says nothing of the device: the host
  // ran out of descriptors. Every exchange of an HTTP driver with its device is one of these.
  engine::Task<HttpResponse> Fetch(std::string Path);
  // The body decoded from code page 1252.
  static std::string BodyText(const HttpResponse& response);
  // The decoded body when the device answered with status 200; nothing otherwise (an
  // authorisation failure or a missing CGI as much as a dead device).
  static std::optional<std::string> Body200(const HttpResponse& response);

  // Fetch judged by Body200: the decoded body of a 200 reply, or nothing.
  engine::Task<std::optional<std::string>> RequestPath(std::string Path);
  // As RequestPath for a group refresh or a write: without a 200 reply, 45005.
  engine::Task<std::string> RequirePath(std::string Path);

  // The first reply of Connect, or 45001 "Unable to connect to the device" when there is none.
  static std::string RequireConnectReply(std::optional<std::string> reply);

 private:
  HTTPClient client_;
};

}  // namespace vmio
