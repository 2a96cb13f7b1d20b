#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>

#include "fleet_sim.h"
#include "vmio/io_device.h"
#include "vmio/objects.h"

namespace vmio {
namespace {

using sim::FleetDevice;
using sim::FleetHealth;
using sim::FleetMake;
using sim::FleetOptions;
using sim::FleetSim;

// A block of loopback addresses of this process's own, so fleets of tests running side by side
// never share a model-query port.
std::string OwnBase() { return "127." + std::to_string(40 + getpid() % 200) + ".0.1"; }

FleetOptions Fleet(int devices, int adam) {
  FleetOptions o;
  o.devices = devices;
  o.adam = adam;
  o.base = OwnBase();
  return o;
}

std::shared_ptr<IODevice> Connected(const FleetDevice& d) {
  auto io = std::dynamic_pointer_cast<IODevice>(CreateObject(d.progid));
  io->Connect(d.device);
  return io;
}

int FirstOutput(IODevice& io) {
  for (int32_t i = 0; i < io.Ports(); ++i) {
    if (io.PortDirection(i) != IOInput) return i;
  }
  return -1;
}

// A raw TCP socket to a device, connecting without blocking.
struct Probe {
  explicit Probe(const std::string& device) : fd(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0)) {
    const size_t colon = device.rfind(':');
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(std::stoi(device.substr(colon + 1))));
    inet_pton(AF_INET, device.substr(0, colon).c_str(), &a.sin_addr);
    connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
  }
  ~Probe() { close(fd); }
  bool Ready(short events, int ms) const {
    pollfd p{fd, events, 0};
    return poll(&p, 1, ms) == 1;
  }
  int fd;
};

TEST(Fleet, CamerasAndModulesServeTheDriversAndFollowTheirPoints) {
  FleetSim fleet(Fleet(4, 2));
  fleet.Start();
  ASSERT_EQ(fleet.Devices().size(), 4u);
  const std::string list = sim::FleetDeviceList(fleet.Devices());
  EXPECT_EQ(std::count(list.begin(), list.end(), '\n'), 4);
  EXPECT_TRUE(list.starts_with(fleet.Devices()[0].progid + " " + fleet.Devices()[0].device + "\n")) << list;

  int modules = 0;
  for (size_t d = 0; d < fleet.Devices().size(); ++d) {
    const FleetDevice& info = fleet.Devices()[d];
    SCOPED_TRACE(info.progid + " " + info.device);
    modules += info.make == FleetMake::Adam;
    EXPECT_EQ(info.health, FleetHealth::Live);
    fleet.SetInput(static_cast<int>(d), 1, true);
    const auto io = Connected(info);
    EXPECT_EQ(io->Ports(), info.make == FleetMake::Axis ? 6 : 18);
    EXPECT_TRUE(io->PortValue(0).AsBool());
    EXPECT_FALSE(io->PortValue(1).AsBool());

    const int output = FirstOutput(*io);
    ASSERT_GE(output, 0);
    io->PortValue(output, Variant(true));
    EXPECT_EQ(fleet.Output(static_cast<int>(d), 1), 1);
  }
  EXPECT_EQ(modules, 2);
  EXPECT_GT(fleet.RequestCount(), 4 * 3);
}

TEST(Fleet, DeadDevicesNeverAnswerAndNeverAccept) {
  FleetOptions o = Fleet(4, 0);
  o.silent = 1;
  o.unaccepting = 1;
  FleetSim fleet(o);
  fleet.Start();
  int silent = 0, unaccepting = 0;
  for (const FleetDevice& d : fleet.Devices()) {
    SCOPED_TRACE(d.device);
    const Probe probe(d.device);
    if (d.health == FleetHealth::Unaccepting) {
      ++unaccepting;
      EXPECT_FALSE(probe.Ready(POLLOUT, 300)) << "the connect completed";
      continue;
    }
    ASSERT_TRUE(probe.Ready(POLLOUT, 2000));
    const std::string request = "GET /axis-cgi/io/port.cgi?check=1 HTTP/1.1\r\nHost: x\r\n\r\n";
    ASSERT_EQ(send(probe.fd, request.data(), request.size(), MSG_NOSIGNAL), static_cast<ssize_t>(request.size()));
    if (d.health == FleetHealth::Silent) {
      ++silent;
      EXPECT_FALSE(probe.Ready(POLLIN, 300)) << "a silent device answered";
    } else {
      EXPECT_TRUE(probe.Ready(POLLIN, 2000));
    }
  }
  EXPECT_EQ(silent, 1);
  EXPECT_EQ(unaccepting, 1);
}

TEST(Fleet, HeldRepliesComeAfterTheDelayAndTheBaseMustBeLoopback) {
  FleetOptions o = Fleet(1, 0);
  o.reply_delay_ms = 150;
  FleetSim fleet(o);
  fleet.Start();
  const auto start = std::chrono::steady_clock::now();
  const auto io = Connected(fleet.Devices()[0]);  // two requests: the counts, then the IOPort group
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_GE(took, std::chrono::milliseconds(300));
  EXPECT_LT(took, std::chrono::seconds(3));

  FleetOptions outside = Fleet(1, 0);
  outside.base = "192.0.2.1";
  EXPECT_THROW(FleetSim(outside).Start(), std::runtime_error);
}

}  // namespace
}  // namespace vmio
