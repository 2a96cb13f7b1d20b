#include "core/errors.h"
#include "core/io_device_placeholder.h"
#include "core/text_match.h"
#include "devices/adam/adam.h"
#include "devices/axxessid/axxessid_door.h"
#include "devices/axxessid/axxessid_sensor.h"
#include "devices/http/acti.h"
#include "devices/http/aviosys_pdu.h"
#include "devices/http/axis.h"
#include "devices/http/genie.h"
#include "devices/http/stardot.h"
#include "devices/http/vivotek.h"
#include "devices/logit/logit.h"
#include "devices/logit/logit_enum.h"
#include "devices/rs232/rs232.h"
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
    {"VMIO.Axis", "axis", &Make<Axis>},
    {"VMIO.Vivotek", "vivotek", &Make<Vivotek>},
    {"VMIO.ACTi", "acti", &Make<ACTi>},
    {"VMIO.StarDot", "stardot", &Make<StarDot>},
    {"VMIO.Genie", "genie", &Make<Genie>},
    {"VMIO.AviosysPDU", "aviosys", &Make<AviosysPDU>},
    {"VMIO.ADAM", "adam", &Make<ADAM>},
    {"VMIO.RS232", "rs232", &Make<RS232>},
    {"VMIO.LogIT", "logit", &Make<LogIT>},
    {"VMIO.LogITEnum", "logitenum", &Make<LogITEnum>, true},
    {"VMIO.AxxessIDDoor", "door", &Make<AxxessIDDoor>},
    {"VMIO.AxxessIDSensor", "sensor", &Make<AxxessIDSensor>},
};

}  // namespace

std::span<const ClassInfo> Classes() { return kClasses; }

const ClassInfo* FindClass(std::string_view name) {
  for (const ClassInfo& c : kClasses) {
    if (EqualsNoCase(c.progid, name) || EqualsNoCase(c.short_name, name)) return &c;
  }
  return nullptr;
}

std::shared_ptr<Object> CreateObject(std::string_view progid) {
  for (const ClassInfo& c : kClasses) {
    if (EqualsNoCase(c.progid, progid)) return c.create();
  }
  Raise(kCannotCreateObject);
}

}  // namespace vmio
