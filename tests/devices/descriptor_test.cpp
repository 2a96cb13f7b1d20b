// What descriptors the network drivers hold: none before Connect, one per connected device
// (the model query's datagram socket is closed once it has its answer), so a thousand devices
// fit under the common limit of 1,024. Once the objects are gone, only the HTTP devices'
// connections stay, in the thread's connection cache, for the next object that talks to the
// same device.
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <memory>
#include <sstream>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "adam_sim.h"
#include "ax200_sim.h"
#include "axis_sim.h"
#include "devices/adam/adam.h"
#include "devices/axxessid/axxessid_door.h"
#include "devices/http/axis.h"
#include "scoped_environment.h"
#include "support/raised.h"
#include "support/sanitized.h"
#include "support/sim_process.h"

namespace vmio {
namespace {

int OpenDescriptors() {
  int n = 0;
  DIR* dir = opendir("/proc/self/fd");
  while (dirent* e = readdir(dir)) n += e->d_name[0] != '.';
  closedir(dir);
  return n - 1;  // the listing's own
}

constexpr int kEach = 3;

// Where the child's simulators are: cameras, an I/O module and the access-control service.
struct Site {
  std::vector<std::string> cameras;
  std::string module;
  uint16_t module_query_port = 0;
  std::string access;
};

Site Serve() {
  const test::SimProcess* served = new test::SimProcess([] {
    std::ostringstream where;
    for (int i = 0; i < kEach; ++i) {
      auto* camera = new sim::AxisSim;
      camera->Start();
      where << camera->Server().Port() << ' ';
    }
    auto* module = new sim::AdamSim({.model = "6060"});
    auto* access = new sim::Ax200Sim;
    module->Start();
    access->Start();
    where << module->DeviceString() << ' ' << module->UdpPort() << ' ' << access->Address();
    return where.str();
  });
  Site site;
  int query_port = 0;
  std::istringstream where(served->Where());
  for (int i = 0; i < kEach; ++i) {
    std::string port;
    where >> port;
    site.cameras.push_back("127.0.0.1:" + port);
  }
  where >> site.module >> query_port >> site.access;
  site.module_query_port = static_cast<uint16_t>(query_port);
  static std::unique_ptr<const test::SimProcess> keep;  // ended with the test program
  keep.reset(served);
  return site;
}

TEST(Descriptors, NoneBeforeConnectAndOnePerConnectedDevice) {
  const Site site = Serve();
  const sim::ScopedEnvironment access("VMIO_AX200", site.access);
  // On a thread of its own, so the thread's transport state starts fresh: its HTTP transfers'
  // shared multi handle costs 2 descriptors, once per thread, made on its first transfer.
  constexpr int kSharedPerThread = 2;
  std::thread([&] {
    const int at_start = OpenDescriptors();
    std::vector<std::unique_ptr<IODevice>> devices;
    for (int i = 0; i < kEach; ++i) {
      devices.push_back(std::make_unique<Axis>());
      devices.push_back(std::make_unique<ADAM>(site.module_query_port));
      devices.push_back(std::make_unique<AxxessIDDoor>());
    }
    EXPECT_EQ(OpenDescriptors(), at_start) << "created, not connected";

    for (size_t i = 0; i < devices.size(); i += 3) {
      devices[i]->Connect(site.cameras[i / 3]);
      devices[i + 1]->Connect(site.module);
      devices[i + 2]->Connect("site");
    }
    EXPECT_EQ(OpenDescriptors(), at_start + kSharedPerThread + 3 * kEach) << "connected";
    for (const auto& device : devices) device->PortValue(0);
    EXPECT_EQ(OpenDescriptors(), at_start + kSharedPerThread + 3 * kEach) << "after a read of each";

    devices.clear();
    EXPECT_EQ(OpenDescriptors(), at_start + kSharedPerThread + kEach) << "destroyed: the cameras' connections kept";
    Axis again;
    again.Connect(site.cameras[0]);
    again.PortValue(0);
    EXPECT_EQ(OpenDescriptors(), at_start + kSharedPerThread + kEach) << "a new object reuses its device's connection";
  }).join();
}

// Every descriptor this process can still open, held until the end of the scope.
class Exhausted {
 public:
  Exhausted() {
    for (int fd; fillers_.size() < 100000 && (fd = ::open("/dev/null", O_RDONLY)) >= 0;) fillers_.push_back(fd);
  }
  ~Exhausted() {
    for (const int fd : fillers_) ::close(fd);
  }
  Exhausted(const Exhausted&) = delete;
  Exhausted& operator=(const Exhausted&) = delete;
  // Gives one back.
  void Release() {
    ::close(fillers_.back());
    fillers_.pop_back();
  }

 private:
  std::vector<int> fillers_;
};

TEST(Descriptors, AModuleConnectedWithoutADescriptorLeftIsToldSoNotThatItIsDead) {
  if (test::kSanitized) GTEST_SKIP() << test::kNeedsDescriptorsOfItsOwn;
  const Site site = Serve();
  ADAM module(site.module_query_port);
  {
    Exhausted none;
    EXPECT_EQ(test::Raised([&] { module.Connect(site.module); }), "67 Too many files");
    none.Release();  // the Modbus connection's, none for the model query
    EXPECT_EQ(test::Raised([&] { module.Connect(site.module); }), "67 Too many files");
  }
  module.Connect(site.module);  // with descriptors back, all is well again
  EXPECT_EQ(module.Ports(), 12);
}

}  // namespace
}  // namespace vmio
