#include "devices/http/http_device.h"

#include "core/errors.h"
#include "core/string_encoding.h"
#include "core/trace.h"
#include "http/device_address.h"
#include "vmio/error.h"

namespace vmio {

HttpDevice::HttpDevice() { client_.UserAgent(kDeviceUserAgent); }

engine::Task<HttpResponse> HttpDevice::Fetch(std::string Path) {
  // The device string is read on every request: credentials and the pin go to the client
  // beside the URL; a string the rule refuses fails the request like any session failure.
  std::string problem;
  const std::optional<DeviceAddress> address = ParseDeviceAddress(Host, problem);
  if (!address) {
    Trace("http: ", problem);
    co_return ExchangeFailure<HttpResponse>(kHttpSessionFailed, "Failed to initialise the HTTP session");
  }
  client_.Access(address->access);
  HttpResponse response = co_await client_.FetchOn(CurrentIo(), address->Url(Path));
  if (response.error == kTooManyFiles) Raise(kTooManyFiles);
  co_return response;
}

std::string HttpDevice::BodyText(const HttpResponse& response) { return BytesToString(response.body, kCodePage1252); }

std::optional<std::string> HttpDevice::Body200(const HttpResponse& response) {
  if (!response.Ok() || !response.StatusIs200()) return std::nullopt;
  return BodyText(response);
}

engine::Task<std::optional<std::string>> HttpDevice::RequestPath(std::string Path) {
  co_return Body200(co_await Fetch(std::move(Path)));
}

engine::Task<std::string> HttpDevice::RequirePath(std::string Path) {
  std::optional<std::string> body = co_await RequestPath(std::move(Path));
  if (!body) RaiseGettingValue();
  co_return std::move(*body);
}

std::string HttpDevice::RequireConnectReply(std::optional<std::string> reply) {
  if (!reply) RaiseConnectionFailed();
  return std::move(*reply);
}

}  // namespace vmio
