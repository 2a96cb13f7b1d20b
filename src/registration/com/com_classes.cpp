#include "registration/com/com_classes.h"

#include "core/errors.h"
#include "vmio/objects.h"
#include "vmio_h.h"

namespace vmio::com {
namespace {

constexpr ComClass kComClasses[] = {
    {"IODevice", &CLSID_IODevice},
    {"Axis", &CLSID_Axis},
    {"Vivotek", &CLSID_Vivotek},
    {"ACTi", &CLSID_ACTi},
    {"StarDot", &CLSID_StarDot},
    {"Genie", &CLSID_Genie},
    {"AviosysPDU", &CLSID_AviosysPDU},
    {"ADAM", &CLSID_ADAM},
    {"RS232", &CLSID_RS232},
    {"LogIT", &CLSID_LogIT},
    {"LogITEnum", &CLSID_LogITEnum},
    {"AxxessIDDoor", &CLSID_AxxessIDDoor},
    {"AxxessIDSensor", &CLSID_AxxessIDSensor},
};

}  // namespace

// {DC97BDC8-9CEC-4FDA-B73F-638BBC2F5C53}
const IID kIidLibraryObject = {0xdc97bdc8, 0x9cec, 0x4fda, {0xb7, 0x3f, 0x63, 0x8b, 0xbc, 0x2f, 0x5c, 0x53}};

std::span<const ComClass> ComClasses() { return kComClasses; }

const ComClass* FindComClass(REFCLSID clsid) {
  for (const ComClass& c : kComClasses) {
    if (IsEqualCLSID(*c.clsid, clsid)) return &c;
  }
  return nullptr;
}

std::shared_ptr<Object> CreateInstance(const ComClass& c) {
  const ClassInfo* info = FindClass(std::string("VMIO.") + c.name);
  if (!info) Raise(kCannotCreateObject);
  return info->create();
}

}  // namespace vmio::com
