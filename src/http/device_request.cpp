#include "http/device_request.h"

#include "core/call_guard.h"
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

std::string HttpDevice::Get(std::string_view Path) {
  return BytesToString(client_.GetResource(Url(Path)), kCodePage1252);
}

std::optional<std::string> HttpDevice::TryGet(std::string_view Path) {
  try {
    return Get(Path);
  } catch (const ReentrantCall&) {
    throw;                           // not the device's failure: the host called back into a request under way
  } catch (const std::exception&) {  // every error, not only the client's
    return std::nullopt;
  }
}

bool HttpDevice::LastStatusIs200() const {
  const std::string& headers = client_.LastHeaders();
  return headers.size() >= 12 && headers.compare(9, 3, "200") == 0;
}

std::optional<std::string> HttpDevice::RequestPath(std::string_view Path) {
  std::optional<std::string> body = TryGet(Path);
  if (body && !LastStatusIs200()) body.reset();
  return body;
}

std::string HttpDevice::RequireConnectReply(std::optional<std::string> reply) {
  if (!reply) RaiseConnectionFailed();
  return std::move(*reply);
}

}  // namespace vmio
