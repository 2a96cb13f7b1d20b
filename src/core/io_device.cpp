#include "vmio/io_device.h"

namespace vmio {
namespace {

using GetValue = Variant (IODevice::*)(int32_t);
using PutValue = void (IODevice::*)(int32_t, const Variant&);

constexpr Member kIODeviceMembers[] = {
    MemberOf<&IODevice::Connect>("Connect", MemberKind::kMethod, 1),
    MemberOf<&IODevice::Disconnect>("Disconnect", MemberKind::kMethod, 2),
    MemberOf<&IODevice::Ports>("Ports", MemberKind::kPropertyGet, 3),
    MemberOf<&IODevice::PortDirection>("PortDirection", MemberKind::kPropertyGet, 4),
    MemberOf<&IODevice::PortType>("PortType", MemberKind::kPropertyGet, 5),
    MemberOf<&IODevice::PortName>("PortName", MemberKind::kPropertyGet, 6),
    MemberOf<static_cast<GetValue>(&IODevice::PortValue)>("PortValue", MemberKind::kPropertyGet, 7),
    MemberOf<static_cast<PutValue>(&IODevice::PortValue)>("PortValue", MemberKind::kPropertyPut, 7),
};

}  // namespace

const MemberTable IODevice::kMembers{kIODeviceMembers};

}  // namespace vmio
