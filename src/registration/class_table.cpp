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

constexpr std::string_view kHttpDevice = "[https://][user:password@]host[:port]";

// Every creatable class. Add a driver here, once, with its programmatic and short names, what
// Connect takes and a line about it.
constexpr ClassInfo kClasses[] = {
    {"VMIO.IODevice",
     "iodevice",
     &Make<IODevicePlaceholder>,
     false,
     {},
     "the interface every device class implements; an object of it has no ports"},
    {"VMIO.Axis", "axis", &Make<Axis>, false, kHttpDevice, "Axis network cameras and video servers: I/O ports"},
    {"VMIO.Vivotek", "vivotek", &Make<Vivotek>, false, kHttpDevice,
     "Vivotek network cameras: digital inputs and outputs"},
    {"VMIO.ACTi", "acti", &Make<ACTi>, false, kHttpDevice, "ACTi network cameras: digital inputs and outputs"},
    {"VMIO.StarDot", "stardot", &Make<StarDot>, false, kHttpDevice, "StarDot network cameras: inputs and outputs"},
    {"VMIO.Genie", "genie", &Make<Genie>, false, kHttpDevice, "Genie network cameras: alarm inputs and outputs"},
    {"VMIO.AviosysPDU", "aviosys", &Make<AviosysPDU>, false, kHttpDevice, "Aviosys power switches: switched outlets"},
    {"VMIO.ADAM", "adam", &Make<ADAM>, false, "host[:port]", "ADAM Ethernet I/O modules over Modbus/TCP"},
    {"VMIO.RS232", "rs232", &Make<RS232>, false, "serial port (/dev/ttyS0)",
     "an instrument answering text commands on a serial line; its ports are the commands added"},
    {"VMIO.LogIT", "logit", &Make<LogIT>, false, "hidraw node (/dev/hidraw0)",
     "LogIT data loggers on USB: sensor readings"},
    {"VMIO.LogITEnum", "logitenum", &Make<LogITEnum>, true, {}, "lists the LogIT loggers attached to this machine"},
    {"VMIO.AxxessIDDoor", "door", &Make<AxxessIDDoor>, false, "AX200", "the doors of an AX200 access-control system"},
    {"VMIO.AxxessIDSensor", "sensor", &Make<AxxessIDSensor>, false, "AX200",
     "the environment sensors of an AX200 access-control system"},
};

}  // namespace

std::span<const ClassInfo> Classes() { return kClasses; }

const ClassInfo* FindClass(std::string_view name) {
  for (const ClassInfo& c : kClasses) {
    if (EqualsNoCase(c.progid, name) || EqualsNoCase(c.short_name, name)) return &c;
  }
  return nullptr;
}

std::shared_ptr<Object> CreateObject(std::string_view name) {
  if (const ClassInfo* c = FindClass(name)) return c->create();
  Raise(kCannotCreateObject);
}

}  // namespace vmio
