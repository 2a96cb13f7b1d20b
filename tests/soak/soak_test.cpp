// Many short lives against simulators: a device object created, connected, read, disconnected
// and released over and over must leave no descriptor and no memory behind.
#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <iostream>
#include <memory>

#include "adam_sim.h"
#include "axis_sim.h"
#include "devices/adam/adam.h"
#include "vmio/io_device.h"
#include "vmio/objects.h"

namespace vmio {
namespace {

constexpr int kCycles = 10000;
constexpr int kWarmUp = 200;              // caches, allocator pools and the simulator settle first
constexpr int kDescriptorSlack = 4;       // the simulator may still be closing its side
constexpr long kResidentSlackKiB = 1024;  // a leak of 100 bytes a cycle shows

int OpenDescriptors() {
  int count = 0;
  if (DIR* dir = opendir("/proc/self/fd")) {
    while (readdir(dir)) ++count;
    closedir(dir);
  }
  return count;
}

long ResidentKiB() {
  long pages = 0;
  long resident = 0;
  if (std::FILE* f = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
    std::fclose(f);
  }
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// Runs the cycles and checks descriptors and resident memory after the warm-up against the end.
void Soak(const char* name, const std::function<void()>& cycle) {
  for (int i = 0; i < kWarmUp; ++i) cycle();
  const int fds = OpenDescriptors();
  const long rss = ResidentKiB();
  const auto start = std::chrono::steady_clock::now();
  for (int i = kWarmUp; i < kCycles; ++i) ASSERT_NO_FATAL_FAILURE(cycle());
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::cout << "[ soak ] " << name << ": " << kCycles << " cycles, " << seconds << " s, descriptors " << fds << " -> "
            << OpenDescriptors() << ", resident " << rss << " -> " << ResidentKiB() << " KiB\n";
  EXPECT_LE(OpenDescriptors(), fds + kDescriptorSlack);
  EXPECT_LE(ResidentKiB(), rss + kResidentSlackKiB);
}

TEST(Soak, HttpDeviceLivesLeaveNothingBehind) {
  sim::AxisSim camera;
  camera.Start();
  const std::string device_string = camera.DeviceString();
  Soak("Axis", [&] {
    auto device = std::dynamic_pointer_cast<IODevice>(CreateObject("VMIO.Axis"));
    ASSERT_TRUE(device);
    device->Connect(device_string);
    ASSERT_GT(device->Ports(), 0);
    device->PortValue(0);
    device->Disconnect();
    camera.Server().ClearLog();  // the simulator's request log would grow by every request
  });
}

TEST(Soak, AdamLivesLeaveNothingBehind) {
  sim::AdamSim module({.model = "6060"});
  module.Start();
  const std::string device_string = module.DeviceString();
  const auto query_port = static_cast<uint16_t>(module.UdpPort());
  Soak("ADAM", [&] {
    auto adam = std::make_unique<ADAM>(query_port);
    adam->Connect(device_string);
    ASSERT_EQ(adam->Ports(), 12);
    adam->PortValue(0);
    adam->Disconnect();
  });
}

}  // namespace
}  // namespace vmio
