// One GET round trip to a local simulator server: HTTPClient on its kept-alive connection,
// next to raw libcurl on a reused easy handle (the floor) and libcurl with a fresh handle, and
// so a fresh connection, per request.
#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <string>

#include "http/http_client.h"
#include "http_sim_server.h"

namespace {

const std::string kReply = "port1=0\r\nport2=1\r\nport3=0\r\nport4=1\r\n";  // a typical CGI answer

vmio::sim::HttpSimServer& Server() {
  static vmio::sim::HttpSimServer* server = [] {
    auto* s = new vmio::sim::HttpSimServer([](const vmio::sim::HttpRequestInfo&) {
      return vmio::sim::HttpReply{200, kReply};
    });
    s->Start();
    return s;
  }();
  return *server;
}

std::string Url() { return "http://" + Server().Authority() + "/axis-cgi/io/port.cgi?checkactive=1,2,3,4"; }

size_t Collect(char* data, size_t size, size_t n, void* out) {
  static_cast<std::string*>(out)->append(data, size * n);
  return size * n;
}

void BM_HttpClientReused(benchmark::State& state) {
  vmio::HTTPClient client;
  const std::string url = Url();
  for (auto _ : state) {
    std::vector<uint8_t> body = client.GetResource(url);
    if (body.size() != kReply.size()) state.SkipWithError("wrong reply");
    benchmark::DoNotOptimize(body);
  }
}

void Perform(CURL* easy, const std::string& url, benchmark::State& state) {
  std::string body;
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Collect);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &body);
  if (curl_easy_perform(easy) != CURLE_OK || body != kReply) state.SkipWithError("request failed");
}

void BM_CurlReusedHandle(benchmark::State& state) {
  CURL* easy = curl_easy_init();
  const std::string url = Url();
  for (auto _ : state) Perform(easy, url, state);
  curl_easy_cleanup(easy);
}

void BM_CurlFreshHandle(benchmark::State& state) {
  const std::string url = Url();
  for (auto _ : state) {
    CURL* easy = curl_easy_init();
    Perform(easy, url, state);
    curl_easy_cleanup(easy);
  }
}

BENCHMARK(BM_HttpClientReused)->UseRealTime();
BENCHMARK(BM_CurlReusedHandle)->UseRealTime();
BENCHMARK(BM_CurlFreshHandle)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
