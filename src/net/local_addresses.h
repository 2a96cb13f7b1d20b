#pragma once
// This computer's IPv4 addresses, for the access-control software that must be told where
// it runs.
#include <cstdint>
#include <string>
#include <vector>

namespace vmio {

// Replaces addresses with the IPv4 addresses of the local host name, dotted, in the order the
// resolver gives them, and returns their count. Never raises: every failure gives 0 and an
// empty list.
int32_t GetLocalIPs(std::vector<std::string>& addresses);

}  // namespace vmio
