// A device named by host name: the name is looked up on the caller's thread, with no thread
// started for it (libcurl would start one per look-up), and a name that does not resolve fails
// as a device that cannot be reached.
#include <dirent.h>
#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>

#include "axis_sim.h"
#include "devices/http/axis.h"
#include "scoped_environment.h"
#include "support/raised.h"
#include "support/sim_process.h"

namespace {

// Threads started anywhere in this process (libcurl's resolver included), counted as they
// start: a look-up thread may end too soon for a listing of /proc/self/task to see it.
std::atomic<int> threads_started{0};

}  // namespace

extern "C" __attribute__((visibility("default"))) int pthread_create(pthread_t* thread, const pthread_attr_t* attr,
                                                                     void* (*start)(void*), void* arg) {
  using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  static const auto real = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
  threads_started.fetch_add(1);
  return real(thread, attr, start, arg);
}

namespace vmio {
namespace {

int ThreadsNow() {
  int n = 0;
  DIR* dir = opendir("/proc/self/task");
  while (dirent* e = readdir(dir)) n += e->d_name[0] != '.';
  closedir(dir);
  return n;
}

// The most threads this process had while it was watched: a look-up thread lives only as
// long as its look-up, so the count is taken over and over meanwhile.
class ThreadWatch {
 public:
  ThreadWatch()
      : watcher_([this] {
          while (!stop_) most_ = std::max(most_.load(), ThreadsNow());
        }) {
    while (most_ == 0) std::this_thread::yield();  // watching from here on
  }
  ~ThreadWatch() { Most(); }
  int Most() {
    stop_ = true;
    if (watcher_.joinable()) watcher_.join();
    return most_;
  }

 private:
  std::atomic<bool> stop_{false};
  std::atomic<int> most_{0};
  std::thread watcher_;
};

// A name only this test knows, for the loopback address: an alias of localhost (which
// libcurl answers by itself, so it could not show a look-up).
class CameraName {
 public:
  CameraName() { std::ofstream(file_) << "vmio-test-camera localhost\n"; }
  ~CameraName() { std::filesystem::remove(file_); }

 private:
  const std::string file_ = testing::TempDir() + "vmio_host_aliases";
  sim::ScopedEnvironment aliases_{"HOSTALIASES", file_};
};

TEST(HostNames, ADeviceNamedByHostConnectsAndReadsWithoutStartingAThread) {
  const test::SimProcess camera([] {
    auto* served = new sim::AxisSim;  // lives as long as the child
    served->Start();
    return std::to_string(served->Server().Port());
  });
  const CameraName name;
  const int threads_before = ThreadsNow();
  int most = 0;
  int started = 0;
  {
    ThreadWatch watch;
    const int started_before = threads_started;
    Axis axis;
    EXPECT_EQ(test::Raised([&] {
                axis.Connect("vmio-test-camera:" + camera.Where());
                axis.PortValue(0);
              }),
              "none");
    started = threads_started - started_before;
    most = watch.Most();
  }
  EXPECT_EQ(started, 0);
  EXPECT_EQ(most, threads_before + 1) << "the watching thread only";
  EXPECT_EQ(ThreadsNow(), threads_before);
}

TEST(HostNames, ANameThatDoesNotResolveFailsAsAnUnreachableDevice) {
  std::string port;  // one nobody listens on any more
  {
    sim::AxisSim gone;
    gone.Start();
    port = std::to_string(gone.Server().Port());
  }
  Axis by_address;
  const std::string unreachable = test::Raised([&] { by_address.Connect("127.0.0.1:" + port); });
  ASSERT_FALSE(unreachable.empty());
  Axis by_name;
  EXPECT_EQ(test::Raised([&] { by_name.Connect("no-such-camera.invalid:" + port); }), unreachable);
}

}  // namespace
}  // namespace vmio
