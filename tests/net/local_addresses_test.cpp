// This computer's addresses, checked against the resolver's own answer for the host name.
#include "net/local_addresses.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <unistd.h>

namespace vmio {
namespace {

TEST(GetLocalIPs, ListsTheHostNamesIPv4AddressesAndReplacesTheList) {
  std::vector<std::string> addresses = {"stale", "entries"};
  const int32_t count = GetLocalIPs(addresses);
  ASSERT_EQ(count, static_cast<int32_t>(addresses.size()));
  for (const std::string& a : addresses) {
    in_addr parsed{};
    EXPECT_EQ(inet_pton(AF_INET, a.c_str(), &parsed), 1) << a;
  }
  // The first address is the resolver's first for our name, which is what the drivers hand on.
  char name[256] = {};
  ASSERT_EQ(gethostname(name, sizeof name - 1), 0);
  const hostent* host = gethostbyname(name);
  if (!host) {
    EXPECT_EQ(count, 0);
    return;
  }
  ASSERT_GT(count, 0);
  char first[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, host->h_addr_list[0], first, sizeof first);
  EXPECT_EQ(addresses[0], first);
}

}  // namespace
}  // namespace vmio
