#include "sim_makes.h"

#include <algorithm>

namespace vmio::sim {
namespace {

// Filled before main from the makes' files, and only read after.
std::vector<SimMake>& Registry() {
  static std::vector<SimMake> makes;
  return makes;
}

}  // namespace

bool RegisterMake(SimMake make) {
  auto& makes = Registry();
  makes.insert(std::ranges::upper_bound(makes, make.name, {}, &SimMake::name), std::move(make));
  return true;
}

std::span<const SimMake> SimMakes() { return Registry(); }

const SimMake* FindMake(std::string_view progid) {
  const auto it = std::ranges::find(Registry(), progid, &SimMake::progid);
  return it == Registry().end() ? nullptr : &*it;
}

}  // namespace vmio::sim
