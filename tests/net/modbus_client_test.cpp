#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <deque>
#include <memory>
#include <vector>

#include "adam_sim.h"
#include "net/modbus_t.h"
#include "support/loopback_peer.h"
#include "support/raised.h"

namespace vmio {
namespace {

using test::Raised;
using Bytes = std::vector<uint8_t>;

const std::string kInvalidReply = "46004 Invalid reply received";

uint16_t UnusedPort() {
  const test::Listener gone;
  return gone.Port();  // closed again when this returns
}

// A peer that records every request and answers each with the next scripted reply; with no
// reply scripted it echoes the request, which is how a device acknowledges a coil write.
struct ScriptedPeer {
  std::mutex mutex;
  std::vector<Bytes> requests;
  std::deque<Bytes> replies;
  test::RawModbusPeer peer{[this](int fd, const Bytes& request) {
    std::lock_guard lock(mutex);
    requests.push_back(request);
    Bytes reply = request;
    if (!replies.empty()) {
      reply = std::move(replies.front());
      replies.pop_front();
    }
    test::SendAll(fd, reply);
    return true;
  }};

  void Script(std::initializer_list<Bytes> next) {
    std::lock_guard lock(mutex);
    replies.insert(replies.end(), next);
  }
  Bytes Request(size_t i) {
    std::lock_guard lock(mutex);
    return i < requests.size() ? requests[i] : Bytes{};
  }
};

TEST(ModbusT, FramesRequestsByteForByte) {
  ScriptedPeer device;
  ModbusT modbus;
  ASSERT_TRUE(modbus.Connect("127.0.0.1", device.peer.Port()));
  EXPECT_TRUE(modbus.Connected());

  device.Script({{0, 0, 0, 0, 0, 7, 1, 1, 4, 0x21, 0x43, 0x65, 0x87}});
  EXPECT_EQ(modbus.GetCoilData(0, 32), (Bytes{0x21, 0x43, 0x65, 0x87}));
  EXPECT_EQ(device.Request(0), (Bytes{0x00, 0x00, 0x00, 0x00, 0x00, 0x06, 0x01, 0x01, 0x00, 0x00, 0x00, 0x20}));

  modbus.SetCoilState(16, true);
  modbus.SetCoilState(16, false);
  EXPECT_EQ(device.Request(1), (Bytes{0x00, 0x01, 0x00, 0x00, 0x00, 0x06, 0x01, 0x05, 0x00, 0x10, 0xFF, 0x00}));
  EXPECT_EQ(device.Request(2), (Bytes{0x00, 0x02, 0x00, 0x00, 0x00, 0x06, 0x01, 0x05, 0x00, 0x10, 0x00, 0x00}));

  // Byte arrays go with a count byte; an argument of another type is left out and not counted.
  modbus.SendRequest(15, int16_t{16}, std::monostate{}, Bytes{0xA5, 0x5A}, int16_t{-1});
  EXPECT_EQ(device.Request(3),
            (Bytes{0x00, 0x03, 0x00, 0x00, 0x00, 0x09, 0x01, 0x0F, 0x00, 0x10, 0x02, 0xA5, 0x5A, 0xFF, 0xFF}));
  // Only the function code's low byte is sent; an argument list passes through whole.
  const std::vector<ModbusArg> list{int16_t{0x0102}};
  modbus.SendRequest(0x0134, list);
  EXPECT_EQ(device.Request(4), (Bytes{0x00, 0x04, 0x00, 0x00, 0x00, 0x04, 0x01, 0x34, 0x01, 0x02}));

  // Connecting again starts the transaction identifiers over.
  ASSERT_TRUE(modbus.Connect("127.0.0.1", device.peer.Port()));
  modbus.SetCoilState(21, false);
  EXPECT_EQ(device.Request(5), (Bytes{0x00, 0x00, 0x00, 0x00, 0x00, 0x06, 0x01, 0x05, 0x00, 0x15, 0x00, 0x00}));
  EXPECT_EQ(device.peer.Connections(), 2);
}

TEST(ModbusT, TransactionIdentifiersWrapFrom32767ToZero) {
  std::mutex mutex;
  std::vector<uint16_t> ids;
  test::RawModbusPeer device([&](int fd, const Bytes& request) {
    {
      std::lock_guard lock(mutex);
      ids.push_back(static_cast<uint16_t>(request[0] << 8 | request[1]));
    }
    const Bytes reply{request[0], request[1], 0, 0, 0, 4, 1, 1, 1, 0};
    test::SendAll(fd, reply);
    return true;
  });
  ModbusT modbus;
  ASSERT_TRUE(modbus.Connect("127.0.0.1", device.Port()));
  constexpr size_t kRequests = 32768 + 3;
  for (size_t i = 0; i < kRequests; ++i) modbus.GetCoilData(0, 1);

  std::lock_guard lock(mutex);
  ASSERT_EQ(ids.size(), kRequests);
  size_t mismatches = 0;
  for (size_t i = 0; i < kRequests; ++i) mismatches += ids[i] != i % 32768;
  EXPECT_EQ(mismatches, 0u);
  EXPECT_EQ(ids[32767], 32767);
  EXPECT_EQ(ids[32768], 0);
  EXPECT_EQ(ids[32770], 2);
}

TEST(ModbusT, JudgesRepliesByLengthAndExceptionBitOnly) {
  ScriptedPeer device;
  ModbusT modbus;
  ASSERT_TRUE(modbus.Connect("127.0.0.1", device.peer.Port()));

  device.Script({{0, 0, 0, 0, 0, 3, 1, 1}});  // 8 bytes: too short
  EXPECT_EQ(Raised([&] { modbus.SendRequest(1); }), kInvalidReply);
  device.Script({{0, 1, 0, 0, 0, 3, 1, 1, 0xAB}});  // 9 bytes: enough
  EXPECT_EQ(modbus.SendRequest(1), Bytes{0xAB});

  // Header fields are not compared with the request; the length field alone sizes the data,
  // and bytes it announces that never came are zeros.
  device.Script({{0x77, 0x77, 0, 5, 0, 6, 9, 3, 0xAB}});
  EXPECT_EQ(modbus.SendRequest(1), (Bytes{0xAB, 0, 0, 0}));
  device.Script({{0, 3, 0, 0, 0, 5, 1, 1, 2, 0x0F, 0xF0, 0x55}});
  EXPECT_EQ(modbus.GetCoilData(0, 12), (Bytes{0x0F, 0xF0}));  // as many as the count byte says
  device.Script({{0, 4, 0, 0, 0, 2, 1, 1, 0}});
  EXPECT_EQ(Raised([&] { modbus.GetCoilData(0, 8); }), "9 Subscript out of range");  // no count byte

  device.Script({{0, 5, 0, 0, 0, 3, 1, 0x81, 2}});
  EXPECT_EQ(Raised([&] { modbus.GetCoilData(0, 8); }), "46005 Modbus exception 2occured");
  device.Script({{0, 6, 0, 0, 0, 3, 1, 0x85, 11}});
  EXPECT_EQ(Raised([&] { modbus.SetCoilState(16, true); }), "46005 Modbus exception 11occured");

  // None of the failures touched the connection.
  EXPECT_TRUE(modbus.Connected());
  device.Script({{0, 7, 0, 0, 0, 4, 1, 1, 1, 0x80}});
  EXPECT_EQ(modbus.GetCoilData(0, 8), Bytes{0x80});
  EXPECT_EQ(device.peer.Connections(), 1);
}

TEST(ModbusT, APeerThatClosesGivesAnInvalidReply) {
  test::RawModbusPeer device([](int, const Bytes&) { return false; });
  ModbusT modbus;
  ASSERT_TRUE(modbus.Connect("127.0.0.1", device.Port()));
  EXPECT_EQ(Raised([&] { modbus.GetCoilData(0, 32); }), kInvalidReply);
  EXPECT_TRUE(modbus.Connected());
}

TEST(ModbusT, ConnectFailuresAndTheStateTheyLeave) {
  ModbusT modbus;
  EXPECT_EQ(Raised([&] { modbus.Connect("", 502); }), "46001 Invalid hostname");
  const std::string cannotConnect = "46001 Failed to connect to device";
  EXPECT_EQ(Raised([&] { modbus.Connect("127.0.0.1", UnusedPort()); }), cannotConnect);
  EXPECT_EQ(Raised([&] { modbus.Connect("localhost", 502); }), cannotConnect);  // never resolved
  EXPECT_FALSE(modbus.Connected());
  // Nothing is tested before sending: the unconnected socket fails the send.
  EXPECT_EQ(Raised([&] { modbus.GetCoilData(0, 1); }), "46002 Send failed");
  modbus.Disconnect();
  modbus.Disconnect();

  ScriptedPeer device;
  ASSERT_TRUE(modbus.Connect("127.0.0.1", device.peer.Port()));
  // A failed reconnect leaves Connected set although its new socket is not connected.
  EXPECT_EQ(Raised([&] { modbus.Connect("127.0.0.1", UnusedPort()); }), cannotConnect);
  EXPECT_TRUE(modbus.Connected());
  EXPECT_EQ(Raised([&] { modbus.GetCoilData(0, 1); }), "46002 Send failed");
  modbus.Disconnect();
  EXPECT_FALSE(modbus.Connected());
}

TEST(ModbusT, ReadsAndSwitchesCoilsOfALibmodbusServer) {
  sim::AdamSim device({.model = "6050"});
  device.Start();
  for (int i : {0, 3, 9}) device.Points().SetInput(i + 1, true);
  ModbusT modbus;
  ASSERT_TRUE(modbus.Connect("127.0.0.1", static_cast<uint16_t>(device.ModbusPort())));
  EXPECT_EQ(modbus.GetCoilData(0, 32), (Bytes{0x09, 0x02, 0x00, 0x00}));

  modbus.SetCoilState(17, true);
  EXPECT_TRUE(device.Points().Output(2));
  EXPECT_FALSE(device.Points().Output(1));
  EXPECT_EQ(modbus.GetCoilData(16, 6), Bytes{0x02});
  modbus.SetCoilState(17, false);
  EXPECT_FALSE(device.Points().Output(2));

  // The server's own exceptions: reading past its coils, writing an input.
  const std::string illegalAddress = "46005 Modbus exception 2occured";
  EXPECT_EQ(Raised([&] { modbus.GetCoilData(0, 100); }), illegalAddress);
  EXPECT_EQ(Raised([&] { modbus.SetCoilState(3, true); }), illegalAddress);
  EXPECT_EQ(device.RequestCount(1), 3);
  EXPECT_EQ(device.RequestCount(5), 3);
}

TEST(ModbusT, ALibmodbusServerKeepsServingClientsWhoseDescriptorsPassTheSelectLimit) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  constexpr rlim_t kWanted = 1200;
  if (limit.rlim_cur < kWanted) {
    if (limit.rlim_max < kWanted) GTEST_SKIP() << "the hard descriptor limit is below " << kWanted;
    limit.rlim_cur = kWanted;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  }
  sim::AdamSim device({.model = "6050"});
  device.Start();
  device.Points().SetInput(1, true);
  // Every descriptor up to 1100 taken, so the sockets of the next connections (the server's
  // ends included, in this process) lie past what an fd_set holds.
  std::vector<int> taken;
  for (int fd; (fd = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0)) >= 0;) {
    taken.push_back(fd);
    if (fd >= 1100) break;
  }
  std::vector<std::unique_ptr<ModbusT>> clients;
  for (int i = 0; i < 3; ++i) {
    clients.push_back(std::make_unique<ModbusT>());
    ASSERT_TRUE(clients.back()->Connect(device.Host(), static_cast<uint16_t>(device.ModbusPort())));
  }
  for (const auto& client : clients) EXPECT_EQ(client->GetCoilData(0, 8), Bytes{0x01});
  clients[1]->SetCoilState(16, true);
  EXPECT_TRUE(device.Points().Output(1));
  EXPECT_EQ(device.ConnectionCount(), 3);
  for (const int fd : taken) close(fd);
}

}  // namespace
}  // namespace vmio
