#include "devices/http/http_device.h"

#include "core/errors.h"
#include "core/string_encoding.h"
#include "core/trace.h"
#include "http/device_address.h"
#include "vmio/error.h"

namespace vmio {

HttpDevice::HttpDevice() { client_.UserAgent(kDeviceUserAgent); }

HttpResponse HttpDevice::Fetch(std::string_view Path) {
  // The device string is read on every request: credentials and the pin go to the client
  // beside the URL; a string the rule refuses fails the request like any session failure.
  std::string problem;
  const std::optional<DeviceAddress> address = ParseDeviceAddress(Host, problem);
  if (!address) {
    Trace("http: ", problem);
    return ExchangeFailure<HttpResponse>(kHttpSessionFailed, "Failed to initialise the HTTP session");
  }
  client_.Access(address->access);
  return client_.Fetch(address->Url(Path));
}

std::string HttpDevice::BodyText(const HttpResponse& response) { return BytesToString(response.body, kCodePage1252); }

std::optional<std::string> HttpDevice::Body200(const HttpResponse& response) {
  if (!response.Ok() || !response.StatusIs200()) return std::nullopt;
  return BodyText(response);
}

std::string HttpDevice::RequirePath(std::string_view Path) {
  std::optional<std::string> body = RequestPath(Path);
  if (!body) RaiseGettingValue();
  return std::move(*body);
}

std::string HttpDevice::RequireConnectReply(std::optional<std::string> reply) {
  if (!reply) RaiseConnectionFailed();
  return std::move(*reply);
}

}  // namespace vmio
