// The local host name through Winsock 1.1's resolver, IPv4 only.
#include "net/local_addresses.h"

#include <winsock2.h>

#include <cstring>

namespace vmio {

int32_t GetLocalIPs(std::vector<std::string>& addresses) {
  addresses.clear();
  WSADATA data;
  if (WSAStartup(MAKEWORD(1, 1), &data) != 0) return 0;
  char name[256] = {};
  if (gethostname(name, sizeof name - 1) != SOCKET_ERROR) {
    if (const hostent* host = gethostbyname(name); host && host->h_addrtype == AF_INET) {
      for (char** a = host->h_addr_list; *a; ++a) {
        in_addr address;
        memcpy(&address, *a, sizeof address);
        addresses.emplace_back(inet_ntoa(address));
      }
    }
  }
  WSACleanup();
  return static_cast<int32_t>(addresses.size());
}

}  // namespace vmio
