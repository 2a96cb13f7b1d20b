#include "demo_targets.h"

#include "vmio/io_device.h"

namespace vmio::cli {

// One entry per driver; add yours with the simulator it runs against.
static const DemoTarget kTargets[] = {
    {"VMIO.IODevice", [](std::string& device) { device = "placeholder"; return std::shared_ptr<void>(); }},
};

std::span<const DemoTarget> DemoTargets() { return kTargets; }

}  // namespace vmio::cli
