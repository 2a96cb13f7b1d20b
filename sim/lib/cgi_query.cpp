#include "cgi_query.h"

namespace vmio::sim {

std::vector<QueryItem> SplitQuery(std::string_view query) {
  std::vector<QueryItem> items;
  while (!query.empty()) {
    const size_t amp = query.find('&');
    const std::string_view item = query.substr(0, amp);
    query = amp == std::string_view::npos ? std::string_view() : query.substr(amp + 1);
    if (item.empty()) continue;
    const size_t eq = item.find('=');
    if (eq == std::string_view::npos) {
      items.push_back({std::string(item), {}, false});
    } else {
      items.push_back({std::string(item.substr(0, eq)), std::string(item.substr(eq + 1)), true});
    }
  }
  return items;
}

}  // namespace vmio::sim
