#include "registration/com/com_classes.h"

#include "core/errors.h"
#include "registration/com/unavailable_device.h"
#include "vmio/enumerator.h"
#include "vmio/objects.h"
#include "vmio_h.h"

namespace vmio::com {
namespace {

std::shared_ptr<Object> NoLogger() { return std::make_shared<UnavailableDevice>("Connection failed"); }
// Finds no loggers: an empty list.
std::shared_ptr<Object> NoLoggerList() { return std::make_shared<IODeviceEnumerator>(); }
std::shared_ptr<Object> NoAccessSoftware() {
  return std::make_shared<UnavailableDevice>("The AX200 software is not found");
}

constexpr ComClass kComClasses[] = {
    {"IODevice", &CLSID_IODevice, nullptr},
    {"Axis", &CLSID_Axis, nullptr},
    {"Vivotek", &CLSID_Vivotek, nullptr},
    {"ACTi", &CLSID_ACTi, nullptr},
    {"StarDot", &CLSID_StarDot, nullptr},
    {"Genie", &CLSID_Genie, nullptr},
    {"AviosysPDU", &CLSID_AviosysPDU, nullptr},
    {"ADAM", &CLSID_ADAM, nullptr},
    {"RS232", &CLSID_RS232, nullptr},
    {"LogIT", &CLSID_LogIT, &NoLogger},
    {"LogITEnum", &CLSID_LogITEnum, &NoLoggerList},
    {"AxxessIDDoor", &CLSID_AxxessIDDoor, &NoAccessSoftware},
    {"AxxessIDSensor", &CLSID_AxxessIDSensor, &NoAccessSoftware},
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
  if (const ClassInfo* info = FindClass(std::string("VMIO.") + c.name)) return info->create();
  if (c.stand_in) return c.stand_in();
  Raise(429);
}

}  // namespace vmio::com
