// The local host name through the system resolver, IPv4 only.
#include "net/local_addresses.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>

namespace vmio {

int32_t GetLocalIPs(std::vector<std::string>& addresses) {
  addresses.clear();
  char name[256] = {};
  if (gethostname(name, sizeof name - 1) != 0) return 0;
  addrinfo hints{};
  hints.ai_family = AF_INET;
  // One entry per address rather than one per socket type.
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(name, nullptr, &hints, &found) != 0) return 0;
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, &freeaddrinfo);
  for (const addrinfo* a = found; a; a = a->ai_next) {
    char text[INET_ADDRSTRLEN] = {};
    const auto* in = reinterpret_cast<const sockaddr_in*>(a->ai_addr);
    if (inet_ntop(AF_INET, &in->sin_addr, text, sizeof text)) addresses.emplace_back(text);
  }
  return static_cast<int32_t>(addresses.size());
}

}  // namespace vmio
