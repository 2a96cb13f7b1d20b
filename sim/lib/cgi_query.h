#pragma once
// Cutting a raw CGI query ("di0&di1", "CHANNEL=1&DIO_STATUS", "relay=1") into its items, in
// order, for the simulators whose devices take plain names and values (no %-escapes).
#include <string>
#include <string_view>
#include <vector>

namespace vmio::sim {

struct QueryItem {
  std::string name;
  std::string value;       // after the first "=", "" when there is none
  bool has_value = false;  // the item carried an "="
};

// Items separated by "&"; empty items are dropped.
std::vector<QueryItem> SplitQuery(std::string_view query);

}  // namespace vmio::sim
