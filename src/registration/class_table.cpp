#include <algorithm>
#include <array>

#include "core/errors.h"
#include "core/io_device_placeholder.h"
#include "vmio/objects.h"

namespace vmio {
namespace {

template <class T>
std::shared_ptr<Object> Make() {
  return std::make_shared<T>();
}

// Every creatable class. Add a driver here, once, with its programmatic and short names.
constexpr ClassInfo kClasses[] = {
    {"VMIO.IODevice", "iodevice", &Make<IODevicePlaceholder>},
};

bool EqualsNoCase(std::string_view a, std::string_view b) {
  return std::ranges::equal(a, b, [](char x, char y) {
    return (x >= 'A' && x <= 'Z' ? x | 0x20 : x) == (y >= 'A' && y <= 'Z' ? y | 0x20 : y);
  });
}

}  // namespace

std::span<const ClassInfo> Classes() { return kClasses; }

std::shared_ptr<Object> CreateObject(std::string_view progid) {
  for (const ClassInfo& c : kClasses) {
    if (EqualsNoCase(c.progid, progid)) return c.create();
  }
  Raise(429);
}

}  // namespace vmio
