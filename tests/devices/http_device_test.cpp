// The one exchange the HTTP drivers share, through a driver that only exposes it.
#include "devices/http/http_device.h"

#include <gtest/gtest.h>

#include "http/raw_peer.h"
#include "http_sim_server.h"
#include "vmio/error.h"
#include "vmio/trace.h"

namespace vmio {
namespace {

using sim::AuthScheme;
using sim::HttpReply;
using sim::HttpRequestInfo;
using sim::HttpSimServer;

class ProbeDevice final : public HttpDevice {
 public:
  using HttpDevice::BodyText;
  HttpResponse Fetch(std::string path) { return RunExchange(HttpDevice::Fetch(std::move(path))); }
  std::optional<std::string> RequestPath(std::string path) {
    return RunExchange(HttpDevice::RequestPath(std::move(path)));
  }
  engine::Task<void> BuildPortTable() override { co_return; }
  int32_t GroupOf(int32_t) override { return kNoGroup; }
  engine::Task<void> ReadGroup(int32_t) override { co_return; }
  engine::Task<void> WritePort(int32_t, Variant) override { co_return; }
};

HttpReply Answer(const HttpRequestInfo& req) {
  if (req.path == "/missing") return {404, "no such CGI"};
  return {200, "caf\xE9 " + req.query};  // code page 1252 on the wire
}

TEST(DeviceRequestTest, GivesTheBodyOnlyFor200) {
  HttpSimServer server(Answer, {AuthScheme::Digest, "root", "pass"});
  server.Start();
  ProbeDevice device;

  device.Connect(server.Authority());  // no credentials: a 401 page, which is no answer
  EXPECT_EQ(device.RequestPath("/io?x=1"), std::nullopt);
  const HttpResponse page = device.Fetch("/io?x=1");
  ASSERT_TRUE(page.Ok());
  EXPECT_FALSE(page.StatusIs200());
  EXPECT_NE(device.BodyText(page).find("401 Unauthorized"), std::string::npos) << device.BodyText(page);

  device.Connect(server.DeviceString());  // "root:pass@127.0.0.1:PORT"
  EXPECT_EQ(device.RequestPath("/io?x=1"), "caf\xC3\xA9 x=1");
  EXPECT_EQ(device.RequestPath("/missing"), std::nullopt);
  EXPECT_EQ(server.RequestLog(), (std::vector<std::string>{"/io?x=1", "/missing"}));

  // A transport failure raises nothing: the client's error comes back as a value.
  server.Stop();
  EXPECT_EQ(device.RequestPath("/io?x=3"), std::nullopt);
  const HttpResponse failed = device.Fetch("/io?x=3");
  EXPECT_EQ(failed.error, kHttpConnectFailed);
  EXPECT_EQ(failed.error_text, "Failed to connect to the HTTP server.");
  EXPECT_TRUE(failed.body.empty());
}

// The trace reads a device string by the rule the request does: however the password is
// written, the trace shows the user and "***", and the device gets the password.
TEST(DeviceRequestTest, TraceNeverShowsThePassword) {
  std::string trace;
  SetTraceHandler([&](std::string_view text) { trace.append(text).append("\n"); });
  for (const std::string password : {"s3c#ret", "s3c?ret", "s3c/ret", "s3c@ret"}) {
    SCOPED_TRACE(password);
    HttpSimServer server(Answer, {AuthScheme::Basic, "admin", password});
    server.Start();
    ProbeDevice device;
    device.Connect("admin:" + password + "@" + server.Authority());
    EXPECT_EQ(device.RequestPath("/io"), "caf\xC3\xA9 ");
    device.Connect("admin:" + password + "x@" + server.Authority());
    EXPECT_EQ(device.RequestPath("/io"), std::nullopt);
    EXPECT_NE(trace.find("http: GET http://admin:***@" + server.Authority() + "/io"), std::string::npos) << trace;
    EXPECT_EQ(trace.find(password), std::string::npos) << trace;
    trace.clear();
  }
  // A device string the address rule refuses fails the request and says why.
  ProbeDevice device;
  device.Connect("admin:secret@127.0.0.1:1#sha265=00");
  EXPECT_EQ(device.RequestPath("/io"), std::nullopt);
  EXPECT_NE(trace.find("http: unknown device string option #sha265=00"), std::string::npos) << trace;
  SetTraceHandler({});
}

TEST(DeviceRequestTest, IdentifiesItselfAsTheEngine) {
  test::RecordingPeer rec;
  ProbeDevice device;
  device.Connect(rec.peer.Url("").substr(7));
  EXPECT_EQ(device.RequestPath("/axis-cgi/io/port.cgi?check=1"), "ok");
  const std::string request = rec.Request(0);
  EXPECT_TRUE(request.starts_with("GET /axis-cgi/io/port.cgi?check=1 HTTP/1.1\r\n")) << request;
  EXPECT_NE(request.find("\r\nUser-Agent: Vastmere IO Engine\r\n"), std::string::npos) << request;
}

}  // namespace
}  // namespace vmio
