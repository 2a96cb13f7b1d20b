// The Windows seams that need no device, checked where Windows (or Wine) provides them: the
// thread timers and the pumping wait, local addresses, HID enumeration and opening, the logger classes on a path that
// names no logger, and the folder of the module the library's code lives in. Prints "PASS vmio-windows-checks" when
// every check holds; the folder of the probe DLL is the program's folder + "\probe".
#include <windows.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/module_file.h"
#include "core/pumping_wait.h"
#include "devices/logit/logit.h"
#include "devices/logit/logit_calibration.h"
#include "devices/logit/logit_enum.h"
#include "devices/logit/logit_usb.h"
#include "hid/hid_device.h"
#include "net/local_addresses.h"
#include "vmio/error.h"
#include "vmio/events.h"

namespace {

int failures = 0;

#define CHECK(condition)                                               \
  do {                                                                 \
    if (!(condition)) {                                                \
      std::printf("FAIL %s:%d: %s\n", __FILE__, __LINE__, #condition); \
      ++failures;                                                      \
    }                                                                  \
  } while (false)

using Clock = std::chrono::steady_clock;

// Four decimal numbers 0..255 joined by dots, nothing else.
bool IsDottedIPv4(const std::string& text) {
  unsigned part[4];
  int length = 0;
  return text.find_first_not_of("0123456789.") == std::string::npos &&
         std::sscanf(text.c_str(), "%3u.%3u.%3u.%3u%n", &part[0], &part[1], &part[2], &part[3], &length) == 4 &&
         static_cast<size_t>(length) == text.size() && part[0] < 256 && part[1] < 256 && part[2] < 256 && part[3] < 256;
}

bool SameFolder(const std::string& a, const std::string& b) {
  return CompareStringA(LOCALE_INVARIANT, NORM_IGNORECASE, a.c_str(), -1, b.c_str(), -1) == CSTR_EQUAL;
}

std::string ProgramFolder() {
  char path[MAX_PATH] = {};
  const DWORD n = GetModuleFileNameA(nullptr, path, MAX_PATH);
  const std::string program(path, n);
  return program.substr(0, program.find_last_of('\\'));
}

class Counter final : public vmio::Callbackable {
 public:
  void Callback() override { ++calls; }
  int calls = 0;
};

// Timers fire only while the thread lets events run: a plain sleep runs none, one
// RunPendingEvents runs a timer that missed several periods once, and the pumping wait runs
// them on their beat; a stopped timer never fires again.
void CheckThreadTimers() {
  auto counter = std::make_shared<Counter>();
  const int32_t id = vmio::StartCallbackTimer(counter, 50);
  Sleep(180);
  CHECK(counter->calls == 0);
  vmio::RunPendingEvents();
  CHECK(counter->calls == 1);
  const auto start = vmio::WaitClock::now();
  vmio::PumpingWait(vmio::kNoWaitHandle, start + std::chrono::milliseconds(500));
  const auto waited = (vmio::WaitClock::now() - start).count();
  CHECK(waited >= 490 && waited < 800);
  CHECK(counter->calls >= 1 + 6 && counter->calls <= 1 + 11);  // about 10 periods
  std::printf("timer calls in 500 ms: %d\n", counter->calls - 1);
  vmio::StopCallbackTimer(id);
  const int before = counter->calls;
  Sleep(120);
  vmio::PumpingWait(vmio::kNoWaitHandle, vmio::WaitClock::now() + std::chrono::milliseconds(150));
  CHECK(counter->calls == before);
}

void CheckLocalAddresses() {
  std::vector<std::string> addresses = {"stale", "entries"};
  const int32_t count = vmio::GetLocalIPs(addresses);
  CHECK(count >= 1);
  CHECK(static_cast<size_t>(count) == addresses.size());
  for (const std::string& address : addresses) {
    std::printf("local address: \"%s\"\n", address.c_str());
    CHECK(IsDottedIPv4(address));
  }
  // A second call gives the same list (the resolver's order), not one added to the first.
  std::vector<std::string> again;
  CHECK(vmio::GetLocalIPs(again) == count && again == addresses);
}

void CheckHidEnumeration() {
  const std::vector<vmio::HidInterfaceInfo> interfaces = vmio::ListHidInterfaces();
  std::printf("HID interfaces: %zu\n", interfaces.size());
  for (const vmio::HidInterfaceInfo& hid : interfaces) {
    std::printf("  %04X:%04X %s\n", hid.vendor_id, hid.product_id, hid.path.c_str());
    CHECK(!hid.path.empty());
    CHECK(hid.vendor_id != 0x0C6F);  // no logger is attached where this runs
  }
  CHECK(vmio::LogITEnum().Count() == 0);
}

void CheckHidOpen() {
  CHECK(vmio::OpenHidDevice("") == nullptr);
  CHECK(vmio::OpenHidDevice("\\\\?\\hid#vid_0c6f&pid_0101#0&0&0&0#{4d1e55b2-f16f-11cf-88cb-001111000030}") == nullptr);
  // A file that opens is still no HID interface.
  char program[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, program, MAX_PATH);
  CHECK(vmio::OpenHidDevice(program) == nullptr);
}

long long MsSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// The error of a LogIT's Connect to path; 0 when it connects.
std::pair<int32_t, std::string> ConnectError(const std::string& path) {
  vmio::LogIT logger;
  try {
    logger.Connect(path);
  } catch (const vmio::AutomationError& error) {
    return {error.Number(), error.Description()};
  }
  return {0, ""};
}

// Wine lists HID interfaces of its own (a virtual mouse and keyboard) that send no report
// here: the waits of a device that stays silent are bounded and leave it usable.
void CheckSilentHidDevice() {
  std::unique_ptr<vmio::HidDevice> device;
  std::string path;
  for (const vmio::HidInterfaceInfo& hid : vmio::ListHidInterfaces()) {
    if ((device = vmio::OpenHidDevice(hid.path))) {
      path = hid.path;
      break;
    }
  }
  if (!device) {
    std::printf("no HID interface opens here: the wait checks are skipped\n");
    return;
  }
  vmio::HidReport untouched{};
  untouched.fill(0xA5);
  vmio::HidReport report = untouched;
  auto start = Clock::now();
  CHECK(!device->Read(report, 0));
  CHECK(MsSince(start) < 100);
  for (int round = 0; round < 2; ++round) {  // the second read follows a cancelled one
    start = Clock::now();
    CHECK(!device->Read(report, 200));
    const long long waited = MsSince(start);
    if (waited < 190 || waited > 700) std::printf("a 200 ms read took %lld ms\n", waited);
    CHECK(waited >= 190 && waited <= 700);
  }
  CHECK(report == untouched);
  start = Clock::now();
  device->Write(vmio::HidReport{0, 1, 13});  // taken or not, as the device has an output report
  CHECK(MsSince(start) < 1500);
  start = Clock::now();
  device.reset();
  CHECK(MsSince(start) < 500);

  // A logger's Connect on it opens the interface, and finds nothing answering.
  const auto [number, description] = ConnectError(path);
  CHECK(number == 45001 && description == "No response from the LogIT device");
}

void CheckLoggerOnBadPath() {
  const std::string bad = "C:\\no such folder\\hid";
  vmio::LogITUSB usb;
  const auto start = Clock::now();
  CHECK(!usb.OpenDevice(bad));
  CHECK(!usb.DeviceOpen());
  CHECK(!usb.SendByte(1));
  CHECK(usb.ReceiveByte(50) == -1);
  CHECK(Clock::now() - start < std::chrono::milliseconds(500));

  const auto [number, description] = ConnectError(bad);
  CHECK(number == 45001 && description == "Connection failed");
}

void CheckModuleFolder() {
  const std::string folder = ProgramFolder();
  // Linked into this program, the library's code lives in the program's file.
  CHECK(SameFolder(vmio::ModuleFolder(), folder));

  const std::string probe_folder = folder + "\\probe";
  HMODULE probe = LoadLibraryA((probe_folder + "\\vmio-module-probe.dll").c_str());
  CHECK(probe != nullptr);
  if (!probe) return;
  using Probe = void (*)(char*, unsigned);
  const auto probe_folder_of =
      reinterpret_cast<Probe>(reinterpret_cast<void*>(GetProcAddress(probe, "ProbeModuleFolder")));
  CHECK(probe_folder_of != nullptr);
  if (probe_folder_of) {
    char reported[MAX_PATH] = {};
    probe_folder_of(reported, sizeof reported);
    if (!SameFolder(reported, probe_folder)) std::printf("the probe DLL reports \"%s\"\n", reported);
    CHECK(SameFolder(reported, probe_folder));
  }
  FreeLibrary(probe);

  // The sensor table beside the program is the one loaded.
  vmio::LoadSensorTable();
  const vmio::SensorRecord* temperature = vmio::FindSensor("17");
  CHECK(temperature != nullptr && temperature->size() > 1 && (*temperature)[1] == "Temperature");
}

}  // namespace

int main() {
  CheckThreadTimers();
  CheckLocalAddresses();
  CheckHidEnumeration();
  CheckHidOpen();
  CheckSilentHidDevice();
  CheckLoggerOnBadPath();
  CheckModuleFolder();
  if (failures == 0) std::printf("PASS vmio-windows-checks\n");
  return failures == 0 ? 0 : 1;
}
