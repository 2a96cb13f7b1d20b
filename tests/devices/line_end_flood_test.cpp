// Replies of nothing but line ends, as large as the HTTP client accepts, must not make the
// drivers that cut replies into rows hold many times the reply.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdio>
#include <memory>
#include <string>

#include "devices/http/acti.h"
#include "devices/http/axis.h"
#include "devices/http/genie.h"
#include "http/raw_peer.h"
#include "support/sanitized.h"
#include "vmio/error.h"

namespace vmio {
namespace {

// The process's peak resident size so far, in bytes.
int64_t PeakResident() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return int64_t{usage.ru_maxrss} * 1024;
}

TEST(LineEndFlood, ARowPerLineEndCostsLittleMoreThanTheReplyItself) {
  if (test::kSanitized)
    GTEST_SKIP() << "AddressSanitizer's redzones and freed-memory quarantine swell the resident size";
  const std::string flood = std::string(kMaxBodyBytes, '\n');
  const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(flood.size()) + "\r\n\r\n";
  test::RawPeer peer([&](test::RawPeer& p, int fd) {
    while (!p.ReadRequest(fd).empty()) {
      test::RawPeer::Send(fd, head);
      test::RawPeer::Send(fd, flood);
    }
  });
  const std::string device = "127.0.0.1:" + peer.Url("").substr(peer.Url("").rfind(':') + 1);
  const int64_t before = PeakResident();
  for (const auto& make : {+[]() -> std::unique_ptr<IODevice> { return std::make_unique<Axis>(); },
                           +[]() -> std::unique_ptr<IODevice> { return std::make_unique<ACTi>(); },
                           +[]() -> std::unique_ptr<IODevice> { return std::make_unique<Genie>(); }}) {
    const std::unique_ptr<IODevice> device_object = make();
    try {
      device_object->Connect(device);
    } catch (const AutomationError&) {  // no ports in such a reply: only the memory counts here
    }
  }
  const int64_t grown = PeakResident() - before;
  RecordProperty("peak_growth_bytes", std::to_string(grown));
  std::printf("peak resident growth: %lld MB for a %zu-byte reply\n", static_cast<long long>(grown >> 20),
              flood.size());
  EXPECT_LT(grown, 10 * static_cast<int64_t>(flood.size()));
}

}  // namespace
}  // namespace vmio
