#include <curl/curl.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "engine/loop.h"
#include "engine/task.h"
#include "engine/waits.h"
#include "fleet_sim.h"
#include "platform/posix/http/curl_multi.h"

namespace vmio::engine {
namespace {

size_t Append(char* data, size_t size, size_t n, void* out) {
  static_cast<std::string*>(out)->append(data, size * n);
  return size * n;
}

int Threads() {
  int n = 0;
  DIR* dir = opendir("/proc/self/task");
  while (dirent* e = readdir(dir)) n += e->d_name[0] != '.';
  closedir(dir);
  return n;
}

struct Fetch {
  explicit Fetch(const std::string& url) : easy(curl_easy_init()) {
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Append);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &body);
    // Short limits, so the dead cameras end the test quickly.
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, 1000L);
    curl_easy_setopt(easy, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(easy, CURLOPT_LOW_SPEED_TIME, 1L);
  }
  ~Fetch() { curl_easy_cleanup(easy); }
  CURL* easy;
  std::string body;
  CURLcode result = CURLE_OK;
  int64_t ended = 0;
};

Task<void> Transferred(CurlMulti& multi, Fetch& fetch) {
  fetch.result = co_await multi.Perform(fetch.easy);
  fetch.ended = NowMs();
}

TEST(EngineCurlMulti, OneThreadFetchesFromEveryCameraAndTheDeadOnesDelayNoOther) {
  sim::FleetOptions options;
  options.devices = 200;
  options.silent = 2;
  options.unaccepting = 2;
  options.reply_delay_ms = 20;
  options.base = "127." + std::to_string(40 + getpid() % 200) + ".1.1";
  sim::FleetSim fleet(options);
  fleet.Start();
  fleet.SetInput(7, 1, true);

  const int threads = Threads();
  Loop loop;
  CurlMulti multi(loop);
  std::vector<std::unique_ptr<Fetch>> fetches;
  std::vector<Task<void>> tasks;
  int done = 0;
  const int64_t start = NowMs();
  for (const sim::FleetDevice& d : fleet.Devices()) {
    fetches.push_back(std::make_unique<Fetch>("http://" + d.device + "/axis-cgi/io/port.cgi?check=1,2"));
    tasks.push_back(Transferred(multi, *fetches.back()));
    tasks.back().Start([&done] { ++done; });
  }
  while (done < static_cast<int>(tasks.size()) && NowMs() - start < 10000) loop.RunOnce(-1);
  EXPECT_EQ(Threads(), threads) << "numeric addresses need no resolver thread";

  ASSERT_EQ(done, 200);
  int64_t last_live = 0, first_dead = INT64_MAX;
  for (size_t i = 0; i < fetches.size(); ++i) {
    const Fetch& f = *fetches[i];
    if (fleet.Devices()[i].health == sim::FleetHealth::Live) {
      EXPECT_EQ(f.result, CURLE_OK) << fleet.Devices()[i].device;
      EXPECT_EQ(f.body, i == 7 ? "port1=1\nport2=0\n" : "port1=0\nport2=0\n");
      last_live = std::max(last_live, f.ended);
    } else {
      EXPECT_NE(f.result, CURLE_OK);
      first_dead = std::min(first_dead, f.ended);
    }
  }
  EXPECT_LT(last_live - start, 900) << "a live camera waited for a dead one";
  EXPECT_GE(first_dead - start, 900);
  EXPECT_EQ(loop.Watches(), 0u);
}

TEST(EngineCurlMulti, ACancelledTransferLeavesTheMultiHandle) {
  sim::FleetOptions options;
  options.devices = 1;
  options.silent = 1;
  options.base = "127." + std::to_string(40 + getpid() % 200) + ".2.1";
  sim::FleetSim fleet(options);
  fleet.Start();
  Loop loop;
  CurlMulti multi(loop);
  Fetch fetch("http://" + fleet.Devices()[0].device + "/");
  {
    Task<void> task = Transferred(multi, fetch);
    task.Start([] { ADD_FAILURE() << "a cancelled transfer ended"; });
    for (int i = 0; i < 5; ++i) loop.RunOnce(20);
    EXPECT_EQ(multi.Running(), 1);
  }
  // The same handle can run again at once: it is no longer part of the multi handle.
  fetch.body.clear();
  Task<void> again = Transferred(multi, fetch);
  bool ended = false;
  again.Start([&ended] { ended = true; });
  while (!ended) loop.RunOnce(-1);
  EXPECT_EQ(fetch.result, CURLE_OPERATION_TIMEDOUT);
}

}  // namespace
}  // namespace vmio::engine
