#include "devices/http/http_device.h"

#include "core/errors.h"
#include "core/string_encoding.h"
#include "core/text_match.h"
#include "vmio/error.h"

namespace vmio {

HttpDevice::HttpDevice() { client_.UserAgent(kDeviceUserAgent); }

std::string HttpDevice::Url(std::string_view Path) const {
  std::string url;
  url.reserve(7 + Host.size() + Path.size());
  // A device string may ask for TLS by its scheme; every other one is an http authority.
  if (!EqualsNoCase(std::string_view(Host).substr(0, 8), "https://")) url.append("http://");
  url.append(Host).append(Path);
  return url;
}

HttpResponse HttpDevice::Fetch(std::string_view Path) { return client_.Fetch(Url(Path)); }

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
