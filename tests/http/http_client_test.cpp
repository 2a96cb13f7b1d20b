// HTTPClient against the simulator server over loopback.
#include "http/http_client.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>

#include "http_sim_server.h"
#include "support/raised.h"
#include "support/text.h"
#include "support/timing.h"
#include "vmio/error.h"

namespace vmio {
namespace {

using sim::AuthScheme;
using sim::HttpAuth;
using sim::HttpReply;
using sim::HttpRequestInfo;
using sim::HttpSimServer;
using test::Clock;
using test::MsSince;
using test::Raised;
using test::ReadFile;
using test::Text;

HttpReply Answer(const HttpRequestInfo& req) {
  if (req.path == "/big") return {200, std::string(100000, 'x')};
  if (req.path.starts_with("/status/")) return {std::stoi(req.path.substr(8)), ""};
  return {200, req.method + " " + req.path + " [" + req.query + "] [" + req.body + "]"};
}

const std::string kCannotConnect = "13104 Failed to connect to the HTTP server.";

class HttpClientTest : public ::testing::Test {
 protected:
  explicit HttpClientTest(HttpAuth auth = {}) : server(Answer, std::move(auth)) { server.Start(); }
  std::string Url(const std::string& path) const { return "http://" + server.Authority() + path; }

  HttpSimServer server;
  HTTPClient client;
};

TEST_F(HttpClientTest, GetsAndPostsWithTheRawQuery) {
  EXPECT_EQ(Text(client.GetResource(Url("/cgi/a.cgi?x=1+2&y=%41"))), "GET /cgi/a.cgi [x=1+2&y=%41] []");
  EXPECT_EQ(Text(client.GetResource(Url("/p"), "", "state=on")), "POST /p [] [state=on]");
  EXPECT_EQ(server.RequestLog(), (std::vector<std::string>{"/cgi/a.cgi?x=1+2&y=%41", "/p"}));
}

TEST_F(HttpClientTest, KeepsTheHeaderBlockOfTheLastSuccessfulRequest) {
  EXPECT_EQ(client.GetHeader(""), "");
  EXPECT_EQ(client.GetResultCode(), "");

  ASSERT_EQ(Text(client.GetResource(Url("/t"))), "GET /t [] []");
  const std::string block = client.GetHeader("");
  EXPECT_TRUE(block.starts_with("HTTP/1.1 200 OK\r\n")) << block;
  EXPECT_NE(block.find("\r\nContent-Length: 12"), std::string::npos) << block;
  EXPECT_FALSE(block.ends_with("\r\n")) << block;
  std::string reason = "untouched";
  EXPECT_EQ(client.GetResultCode(&reason), "200");
  EXPECT_EQ(reason, "OK\r");
  EXPECT_EQ(client.GetHeader("Content-Length"), "");

  // Any status is a reply, not an error; an empty body still fills the header block.
  EXPECT_TRUE(client.GetResource(Url("/status/404")).empty());
  EXPECT_EQ(client.GetResultCode(&reason), "404");
  EXPECT_EQ(reason, "Not Found\r");

  // 999 is no status code: "" and the reason phrase is left alone.
  client.GetResource(Url("/status/999"));
  EXPECT_TRUE(client.GetHeader("").starts_with("HTTP/1.1 999 ")) << client.GetHeader("");
  reason = "untouched";
  EXPECT_EQ(client.GetResultCode(&reason), "");
  EXPECT_EQ(reason, "untouched");

  // A failed request leaves the block of the last successful one.
  const std::string before = client.GetHeader("");
  server.Stop();
  EXPECT_EQ(Raised([&] { client.GetResource(Url("/t")); }), kCannotConnect);
  EXPECT_EQ(client.GetHeader(""), before);
  EXPECT_FALSE(client.Working());
}

TEST_F(HttpClientTest, ReusesOneConnectionAndReconnectsWhenTheServerClosedIt) {
  for (int i = 0; i < 20; ++i) ASSERT_EQ(Text(client.GetResource(Url("/k"))), "GET /k [] []");
  EXPECT_EQ(server.ConnectionCount(), 1);

  server.CloseConnections();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));  // let the close reach the client
  EXPECT_EQ(Text(client.GetResource(Url("/k"))), "GET /k [] []");
  EXPECT_EQ(server.ConnectionCount(), 2);
  EXPECT_EQ(server.RequestCount("/k"), 21);
}

TEST_F(HttpClientTest, FailuresCarryTheirNumbersAndTexts) {
  const std::string cannot_start = "13101 Failed to initialise the HTTP session";
  EXPECT_EQ(Raised([&] { client.GetResource("http://127.0.0.1:99999/x"); }), cannot_start);
  EXPECT_EQ(Raised([&] { client.GetResource("ftp://" + server.Authority() + "/x"); }), cannot_start);

  const int port = server.Port();
  server.Stop();
  EXPECT_EQ(Raised([&] { client.GetResource("http://127.0.0.1:" + std::to_string(port) + "/"); }), kCannotConnect);

  // LastResponse: the transport's reason in a 1024-character buffer.
  const std::string last = client.LastResponse();
  ASSERT_EQ(last.size(), 1024u);
  const std::string text = last.substr(0, last.find('\0'));
  EXPECT_NE(text.find(std::to_string(port)), std::string::npos) << text;
  EXPECT_EQ(last.find_first_not_of('\0', text.size()), std::string::npos);
}

TEST_F(HttpClientTest, UserAgentPutRestoresTheDefaultReceiveTimeout) {
  EXPECT_EQ(client.UserAgent(), "");
  client.Timeout(300);
  client.UserAgent("Other Agent");
  EXPECT_EQ(client.UserAgent(), "Other Agent");
  server.SetSilent(true);
  const Clock::time_point start = Clock::now();
  EXPECT_EQ(Raised([&] { client.GetResource(Url("/held")); }), kCannotConnect);
  const long long elapsed = MsSince(start);
  EXPECT_GE(elapsed, 4950);
  EXPECT_LT(elapsed, 6500);

  // The abandoned request never reaches the handler; the next one does.
  server.SetSilent(false);
  EXPECT_EQ(Text(client.GetResource(Url("/after"))), "GET /after [] []");
  EXPECT_EQ(server.RequestLog(), std::vector<std::string>{"/after"});
}

TEST_F(HttpClientTest, ProgressFollowsEveryChunkAndCanCancel) {
  std::vector<int32_t> received;
  std::vector<int32_t> totals;
  bool working_inside = false;
  client.Progress = [&](int32_t r, int32_t t, bool&) {
    received.push_back(r);
    totals.push_back(t);
    working_inside = client.Working();
  };
  EXPECT_EQ(client.GetResource(Url("/big")).size(), 100000u);
  ASSERT_GE(received.size(), 2u);
  EXPECT_EQ(received.back(), 100000);
  EXPECT_TRUE(std::is_sorted(received.begin(), received.end()));
  EXPECT_EQ(totals, std::vector<int32_t>(totals.size(), 100000));
  EXPECT_TRUE(working_inside);
  EXPECT_FALSE(client.Working());

  client.GetResource(Url("/status/204"));
  const std::string before = client.GetHeader("");
  int calls = 0;
  client.Progress = [&](int32_t, int32_t, bool& cancel) { cancel = ++calls == 1; };
  EXPECT_EQ(Raised([&] { client.GetResource(Url("/big")); }), "13107 Download cancelled");
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(client.GetHeader(""), before);
  EXPECT_FALSE(client.Working());

  // A handler's own error reaches the caller as it was raised.
  client.Progress = [](int32_t, int32_t, bool&) { throw AutomationError(45001, "handler failed"); };
  EXPECT_EQ(Raised([&] { client.GetResource(Url("/big")); }), "45001 handler failed");
  client.Progress = nullptr;
  EXPECT_EQ(client.GetResource(Url("/big")).size(), 100000u);
}

TEST_F(HttpClientTest, DownloadsIntoAFileKeepingALongerOldTail) {
  const std::string file = ::testing::TempDir() + "vmio_download.bin";
  std::remove(file.c_str());
  client.DownloadResource(Url("/big"), file);
  EXPECT_EQ(ReadFile(file), std::string(100000, 'x'));

  {
    std::ofstream old(file, std::ios::binary | std::ios::trunc);
    old << std::string(200000, '-');
  }
  std::vector<int32_t> received;
  client.Progress = [&](int32_t r, int32_t, bool&) { received.push_back(r); };
  client.DownloadResource(Url("/big"), file);
  EXPECT_EQ(ReadFile(file), std::string(100000, 'x') + std::string(100000, '-'));
  ASSERT_FALSE(received.empty());
  EXPECT_EQ(received.back(), 200000);  // the file's length, old tail included
  std::remove(file.c_str());

  EXPECT_EQ(Raised([&] { client.DownloadResource(Url("/big"), file + ".missing/x.bin"); }), "76 Path not found");
  EXPECT_FALSE(client.Working());
}

class BasicAuthTest : public HttpClientTest {
 protected:
  BasicAuthTest() : HttpClientTest({AuthScheme::Basic, "admin", "se:cret"}) {}
};

class DigestAuthTest : public HttpClientTest {
 protected:
  DigestAuthTest() : HttpClientTest({AuthScheme::Digest, "root", "pass"}) {}
};

HttpAccess Credentials(const std::string& user, const std::string& password) {
  HttpAccess access;
  access.authenticate = true;
  access.user = user;
  access.password = password;
  return access;
}

// Credentials beside the URL open the door, exactly as given; wrong or missing ones give a
// 401 reply, not an error; credentials inside the URL are refused before anything is sent.
void ExpectCredentialsBesideTheUrl(HTTPClient& client, HttpSimServer& server, const HttpAccess& good) {
  const std::string base = "http://" + server.Authority();
  client.Access(good);
  EXPECT_EQ(Text(client.GetResource(base + "/io?a=1")), "GET /io [a=1] []");
  EXPECT_EQ(client.GetResultCode(), "200");
  EXPECT_EQ(client.GetHeader("").find("WWW-Authenticate"), std::string::npos) << client.GetHeader("");

  client.Access(Credentials(good.user, good.password + "x"));
  const std::string page = Text(client.GetResource(base + "/io"));
  EXPECT_NE(page.find("401"), std::string::npos) << page;
  std::string reason;
  EXPECT_EQ(client.GetResultCode(&reason), "401");
  EXPECT_EQ(reason, "Unauthorized\r");
  EXPECT_NE(client.GetHeader("").find("WWW-Authenticate"), std::string::npos);

  client.Access({});
  client.GetResource(base + "/io");
  EXPECT_EQ(client.GetResultCode(), "401");
  EXPECT_EQ(Raised([&] { client.GetResource("http://root:pass@" + server.Authority() + "/io"); }),
            "13101 Failed to initialise the HTTP session");
  EXPECT_EQ(server.RequestCount("/io"), 1);
}

TEST_F(BasicAuthTest, AnswersBasicWithTheCredentialsAsGiven) {
  ExpectCredentialsBesideTheUrl(client, server, Credentials("admin", "se:cret"));
}

TEST_F(DigestAuthTest, AnswersDigestWithTheCredentialsAsGiven) {
  ExpectCredentialsBesideTheUrl(client, server, Credentials("root", "pass"));
  client.Access(Credentials("root", "pass"));
  // The response hash covers the target as sent, a trailing backslash included.
  EXPECT_EQ(Text(client.GetResource("http://" + server.Authority() + "/out?a=1:\\")), "GET /out [a=1:\\] []");
  // Digest round trips stay on the kept-alive connection, POSTs included.
  const std::string url = "http://" + server.Authority() + "/x";
  for (int i = 0; i < 5; ++i) EXPECT_EQ(Text(client.GetResource(url, "", "b")), "POST /x [] [b]");
  EXPECT_EQ(server.ConnectionCount(), 1);
}

// Every character a camera password can hold reaches the device undecoded, by either scheme.
TEST(HttpClientCredentialsTest, AwkwardPasswordsArriveVerbatim) {
  const std::string password = "p@s/s#w?r%41d: %20x";
  for (const AuthScheme scheme : {AuthScheme::Basic, AuthScheme::Digest}) {
    HttpSimServer server(Answer, {scheme, "op@site", password});
    server.Start();
    HTTPClient client;
    client.Access(Credentials("op@site", password));
    EXPECT_EQ(Text(client.GetResource("http://" + server.Authority() + "/io")), "GET /io [] []");
    client.Access(Credentials("op@site", "p@s/s#w?rAd: %20x"));  // what decoding %41 would send
    client.GetResource("http://" + server.Authority() + "/io");
    EXPECT_EQ(client.GetResultCode(), "401");
  }
}

TEST(HttpSimServerTest, StopsPromptlyWhileHoldingARequest) {
  HttpSimServer server(Answer);
  server.Start();
  server.SetSilent(true);
  HTTPClient client;
  std::thread waiting([&] {
    EXPECT_EQ(Raised([&] { client.GetResource("http://" + server.Authority() + "/held"); }), kCannotConnect);
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  const Clock::time_point start = Clock::now();
  server.Stop();
  EXPECT_LT(MsSince(start), 500);
  waiting.join();
  EXPECT_EQ(server.RequestCount(), 0);
}

}  // namespace
}  // namespace vmio
