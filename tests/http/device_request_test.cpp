// The request routine the HTTP drivers share, through a driver that only exposes it.
#include "http/device_request.h"

#include <gtest/gtest.h>

#include "http_sim_server.h"
#include "raw_peer.h"

namespace vmio {
namespace {

using sim::AuthScheme;
using sim::HttpReply;
using sim::HttpRequestInfo;
using sim::HttpSimServer;

class ProbeDevice final : public HttpDevice {
 public:
  using HttpDevice::Host;
  using HttpDevice::LastReply;
  using HttpDevice::RequestPath;
  void Connect(const std::string& Device) override { Host = Device; }
  std::string PortName(int32_t) override { return {}; }
  Variant PortValue(int32_t) override { return {}; }
  void PortValue(int32_t, const Variant&) override {}
};

HttpReply Answer(const HttpRequestInfo& req) {
  if (req.path == "/missing") return {404, "no such CGI"};
  return {200, "caf\xE9 " + req.query};  // code page 1252 on the wire
}

TEST(DeviceRequestTest, TrueOnlyFor200ButEveryReplyIsKept) {
  HttpSimServer server(Answer, {AuthScheme::Digest, "root", "pass"});
  server.Start();
  ProbeDevice device;

  device.Connect(server.Authority());  // no credentials: the 401 page is the reply
  EXPECT_FALSE(device.RequestPath("/io?x=1"));
  EXPECT_NE(device.LastReply.find("401 Unauthorized"), std::string::npos) << device.LastReply;

  device.Connect(server.DeviceString());  // "root:pass@127.0.0.1:PORT"
  EXPECT_TRUE(device.RequestPath("/io?x=1"));
  EXPECT_EQ(device.LastReply, "caf\xC3\xA9 x=1");

  EXPECT_FALSE(device.RequestPath("/missing"));
  EXPECT_EQ(device.LastReply, "no such CGI");
  EXPECT_EQ(server.RequestLog(), (std::vector<std::string>{"/io?x=1", "/missing"}));

  // A transport failure keeps the previous reply and raises nothing.
  EXPECT_TRUE(device.RequestPath("/io?x=2"));
  server.Stop();
  EXPECT_FALSE(device.RequestPath("/io?x=3"));
  EXPECT_EQ(device.LastReply, "caf\xC3\xA9 x=2");
}

TEST(DeviceRequestTest, IdentifiesItselfAsTheEngine) {
  test::RecordingPeer rec;
  ProbeDevice device;
  device.Connect(rec.peer.Url("").substr(7));
  EXPECT_TRUE(device.RequestPath("/axis-cgi/io/port.cgi?check=1"));
  EXPECT_EQ(device.LastReply, "ok");
  const std::string request = rec.Request(0);
  EXPECT_TRUE(request.starts_with("GET /axis-cgi/io/port.cgi?check=1 HTTP/1.1\r\n")) << request;
  EXPECT_NE(request.find("\r\nUser-Agent: Vastmere IO Engine\r\n"), std::string::npos) << request;
}

}  // namespace
}  // namespace vmio
