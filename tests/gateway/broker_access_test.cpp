// The gateway reaches a broker that wants TLS and a password, and says so when refused.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "mqtt_harness.h"

namespace vmio::gateway::testing {
namespace {

using namespace std::chrono_literals;

std::string ReadFile(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

TEST(GatewayBroker, TlsWithAPasswordFromTheEnvironmentReachesAGuardedListenerAndAWrongOneIsToldApart) {
  TempDir dir;
  const std::string cert = dir.path() + "/broker.pem";
  const std::string key = dir.path() + "/broker.key";
  const std::string passwords = dir.path() + "/passwords";
  ASSERT_EQ(std::system(("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 1 "
                         "-subj /CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1 -keyout " +
                         key + " -out " + cert + " 2>/dev/null")
                            .c_str()),
            0);
  ASSERT_EQ(std::system(("mosquitto_passwd -b -c " + passwords + " gateway 's3cr:t@#' 2>/dev/null").c_str()), 0);
  // Run as root, mosquitto reads them after it has become its own unprivileged user.
  namespace fs = std::filesystem;
  for (const std::string& path : {dir.path(), key, passwords}) {
    fs::permissions(path, fs::perms::others_read | fs::perms::others_exec, fs::perm_options::add);
  }
  // The plain listener is the test's; the guarded one the gateway's.
  const int guarded = Broker::FreePort();
  Broker broker(dir, "listener " + std::to_string(guarded) + " 127.0.0.1\ncafile " + cert + "\ncertfile " + cert +
                         "\nkeyfile " + key + "\nallow_anonymous false\npassword_file " + passwords + "\n");
  broker.Start();
  Recorder recorder(broker.port());

  auto config = [&](const std::string& name) {
    return dir.Write(name + ".yaml", "mqtt:\n  host: 127.0.0.1\n  port: " + std::to_string(guarded) +
                                         "\n  user: gateway\n  password_env: VMIO_GW_TEST_BROKER_PASSWORD\n"
                                         "  client_id: " +
                                         name +
                                         "\n  tls: {ca_file: broker.pem}\n"
                                         "devices:\n  - {name: gone, class: adam, device: '127.0.0.1:1'}\n");
  };
  setenv("VMIO_GW_TEST_BROKER_PASSWORD", "wrong", 1);
  Child refused({VMIO_GATEWAY_PROGRAM, config("refused")}, dir.path() + "/refused.log");
  setenv("VMIO_GW_TEST_BROKER_PASSWORD", "s3cr:t@#", 1);
  Child accepted({VMIO_GATEWAY_PROGRAM, config("accepted")}, dir.path() + "/accepted.log");

  EXPECT_TRUE(recorder.WaitFor("vmio/bridge/state", "online", 5s));
  EXPECT_TRUE(recorder.WaitFor("vmio/gone/availability", "offline", 5s));
  EXPECT_EQ(accepted.Kill(SIGTERM), 0);
  EXPECT_TRUE(recorder.WaitFor("vmio/bridge/state", "offline", 5s));  // said on the way out
  std::this_thread::sleep_for(500ms);
  EXPECT_EQ(refused.Kill(SIGTERM), 0);
  const std::string log = ReadFile(dir.path() + "/refused.log");
  EXPECT_NE(log.find("warning: broker: cannot connect to 127.0.0.1:" + std::to_string(guarded) +
                     " (refused: Connection Refused: not authorised."),
            std::string::npos)
      << log;
  EXPECT_EQ(log.find("broker: connected"), std::string::npos) << log;
}

}  // namespace
}  // namespace vmio::gateway::testing
