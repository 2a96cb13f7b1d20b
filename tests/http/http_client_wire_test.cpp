// HTTPClient against scripted peers: the bytes it sends, and replies no decent server gives.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "http/http_client.h"
#include "raw_peer.h"
#include "support/raised.h"
#include "support/text.h"

namespace vmio {
namespace {

using test::Raised;
using test::RawPeer;
using test::ReadFile;
using test::RecordingPeer;
using test::Text;

TEST(HttpClientWireTest, SendsTheRequestShapeOfAReloadingHttp11Client) {
  RecordingPeer rec;
  HTTPClient client;
  ASSERT_EQ(Text(client.GetResource(rec.peer.Url("/cgi/x?a=1+2"), "X-One: 1\r\nX-Two: two")), "ok");
  const std::string get = rec.Request(0);
  EXPECT_TRUE(get.starts_with("GET /cgi/x?a=1+2 HTTP/1.1\r\n")) << get;
  for (const char* line : {"\r\nUser-Agent: Tolvane HTTP Client Object\r\n", "\r\nCache-Control: no-cache\r\n",
                           "\r\nPragma: no-cache\r\n", "\r\nX-One: 1\r\n", "\r\nX-Two: two\r\n"}) {
    EXPECT_NE(get.find(line), std::string::npos) << line << " missing from:\n" << get;
  }
  for (const char* name : {"Accept:", "Authorization:", "Content-Length:"}) {
    EXPECT_EQ(get.find(name), std::string::npos) << name << " in:\n" << get;
  }

  // A POST exactly when there is PostData, sent in code page 1252, with nothing added.
  ASSERT_EQ(Text(client.GetResource(rec.peer.Url("/set"), "", "name=\xC3\xA9t\xC3\xA9")), "ok");
  const std::string post = rec.Request(1);
  EXPECT_TRUE(post.starts_with("POST /set HTTP/1.1\r\n")) << post;
  EXPECT_NE(post.find("\r\nContent-Length: 8\r\n"), std::string::npos) << post;
  EXPECT_TRUE(post.ends_with("\r\n\r\nname=\xE9t\xE9")) << post;
  EXPECT_EQ(post.find("Content-Type:"), std::string::npos) << post;
  EXPECT_EQ(post.find("Expect:"), std::string::npos) << post;

  ASSERT_EQ(Text(client.GetResource(rec.peer.Url("/again"))), "ok");
  EXPECT_TRUE(rec.Request(2).starts_with("GET /again HTTP/1.1\r\n")) << rec.Request(2);
}

TEST(HttpClientWireTest, AChunkedBodyHasNoTotal) {
  RawPeer peer([](RawPeer& p, int fd) {
    p.ReadRequest(fd);
    RawPeer::Send(fd, "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    RawPeer::Send(fd, "6\r\n world\r\n0\r\n\r\n");
  });
  HTTPClient client;
  std::vector<std::pair<int32_t, int32_t>> progress;
  client.Progress = [&](int32_t received, int32_t total, bool&) { progress.emplace_back(received, total); };
  EXPECT_EQ(Text(client.GetResource(peer.Url("/"))), "hello world");
  EXPECT_EQ(progress, (std::vector<std::pair<int32_t, int32_t>>{{5, -1}, {11, -1}}));
}

TEST(HttpClientWireTest, ABodyCutShortEndsTheDataButTruncatesADownload) {
  RawPeer peer([](RawPeer& p, int fd) {
    p.ReadRequest(fd);
    RawPeer::Send(fd, "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n" + std::string(40, 'a'));
  });
  HTTPClient client;
  EXPECT_EQ(client.GetResource(peer.Url("/")).size(), 40u);
  EXPECT_EQ(client.GetResultCode(), "200");

  const std::string file = ::testing::TempDir() + "vmio_truncated.bin";
  std::remove(file.c_str());
  EXPECT_EQ(Raised([&] { client.DownloadResource(peer.Url("/"), file); }), "13106 Download file truncated");
  EXPECT_EQ(ReadFile(file), std::string(40, 'a'));
  std::remove(file.c_str());
}

TEST(HttpClientWireTest, SilenceAfterTheHeadersIsADisconnection) {
  RawPeer peer([](RawPeer& p, int fd) {
    p.ReadRequest(fd);
    RawPeer::Send(fd, "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\npartial");
    p.WaitForHangUp(fd);
  });
  RecordingPeer good;
  HTTPClient client;
  client.GetResource(good.peer.Url("/"));
  const std::string before = client.GetHeader("");
  client.Timeout(300);
  EXPECT_EQ(Raised([&] { client.GetResource(peer.Url("/")); }), "13106 Disconnected while recieving data");
  EXPECT_EQ(client.GetHeader(""), before);
}

TEST(HttpClientWireTest, FollowsARedirectAndKeepsTheFinalHeaders) {
  RawPeer peer([](RawPeer& p, int fd) {
    for (std::string req; !(req = p.ReadRequest(fd)).empty();) {
      if (req.starts_with("GET /old ")) {
        RawPeer::Send(fd, "HTTP/1.1 302 Found\r\nLocation: /new\r\nContent-Length: 5\r\n\r\nmoved");
      } else {
        RawPeer::Send(fd, "HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nnew");
      }
    }
  });
  HTTPClient client;
  EXPECT_EQ(Text(client.GetResource(peer.Url("/old"))), "new");
  EXPECT_EQ(client.GetHeader(""), "HTTP/1.1 200 OK\r\nContent-Length: 3");
}

TEST(HttpClientWireTest, AHeaderBlockTooLongForItsBufferComesBackBlank) {
  RawPeer peer([](RawPeer& p, int fd) {
    p.ReadRequest(fd);
    RawPeer::Send(fd, "HTTP/1.1 200 OK\r\nX-Long: " + std::string(2100, 'z') + "\r\nContent-Length: 2\r\n\r\nok");
  });
  HTTPClient client;
  EXPECT_EQ(Text(client.GetResource(peer.Url("/"))), "ok");
  EXPECT_EQ(client.GetHeader(""), std::string(2048, '\0'));
  EXPECT_EQ(client.GetResultCode(), "");
}

}  // namespace
}  // namespace vmio
