// HID on Windows: interfaces from the device setup API, reports through overlapped file I/O.
//
// Reads and writes are overlapped so that neither blocks without limit: a read waits at most
// its time-out and a write a short while, then the request is cancelled. The HID class driver
// queues input reports while nobody reads; we ask it to keep 32, as the Linux seam does.
#include <windows.h>
// These rely on windows.h; the HID header's declarations are C but it does not say so.
#include <setupapi.h>
extern "C" {
#include <hidsdi.h>
}

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>
#include <vector>

#include "hid/hid_device.h"
#include "platform/windows/core/unique_handle.h"

namespace vmio {
namespace {

constexpr ULONG kInputBuffers = 32;
// A write to a device that takes no more reports fails after this long.
constexpr DWORD kWriteWaitMs = 1000;
// How long a cancelled request may take to come back before we give up waiting for it.
constexpr DWORD kCancelWaitMs = 200;
// Report lengths we accept from a device's capabilities (report ID byte included).
constexpr USHORT kMaxReportLength = 65;

HANDLE OpenShared(const std::string& path, DWORD access, DWORD flags) {
  return CreateFileA(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, flags, nullptr);
}

// The vendor and product of the interface at path. An interface that refuses reading and
// writing (a keyboard or mouse the system holds) still answers with access 0.
bool ReadAttributes(const std::string& path, HidInterfaceInfo& info) {
  HANDLE opened = OpenShared(path, GENERIC_READ | GENERIC_WRITE, 0);
  if (opened == INVALID_HANDLE_VALUE) opened = OpenShared(path, 0, 0);
  UniqueHandle device(opened);
  if (!device) return false;
  HIDD_ATTRIBUTES attributes{};
  attributes.Size = sizeof attributes;
  if (!HidD_GetAttributes(device.Get(), &attributes)) return false;
  info.vendor_id = attributes.VendorID;
  info.product_id = attributes.ProductID;
  return true;
}

// The interface path of one member of a device-interface set; "" when it cannot be read.
std::string InterfacePath(HDEVINFO set, SP_DEVICE_INTERFACE_DATA& interface_data) {
  DWORD size = 0;
  SetupDiGetDeviceInterfaceDetailA(set, &interface_data, nullptr, 0, &size, nullptr);
  if (size < sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A)) return {};
  // Aligned for the record whose size field the call checks against this architecture's layout.
  std::vector<DWORD> buffer((size + sizeof(DWORD) - 1) / sizeof(DWORD));
  auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A*>(buffer.data());
  detail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A);
  SP_DEVINFO_DATA device_data{};
  device_data.cbSize = sizeof device_data;
  if (!SetupDiGetDeviceInterfaceDetailA(set, &interface_data, detail, size, nullptr, &device_data)) return {};
  const size_t offset = offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_A, DevicePath);
  return std::string(detail->DevicePath, strnlen(detail->DevicePath, size - offset));
}

// One pending-capable request: its own event, record and buffer, reused for every call.
struct Request {
  Request() { Reset(); }

  void Reset() {
    overlapped = OVERLAPPED{};
    overlapped.hEvent = event.Get();
  }

  UniqueHandle event{CreateEventA(nullptr, TRUE, FALSE, nullptr)};
  OVERLAPPED overlapped{};
  std::vector<uint8_t> buffer;
  bool pending = false;
};

class WindowsHidDevice final : public HidDevice {
 public:
  WindowsHidDevice(HANDLE handle, USHORT input_length, USHORT output_length) : handle_(handle) {
    read_.buffer.resize(input_length);
    write_.buffer.resize(output_length);
  }

  ~WindowsHidDevice() override {
    Abandon(read_);
    Abandon(write_);
  }

  bool Ready() const { return read_.event && write_.event; }

  bool Write(const HidReport& report) override {
    if (write_.pending && !Finish(write_, 0)) return false;  // the last one is still stuck
    std::fill(write_.buffer.begin(), write_.buffer.end(), 0);
    std::copy_n(report.begin(), std::min(report.size(), write_.buffer.size()), write_.buffer.begin());
    DWORD done = 0;
    if (!Start(write_, WriteFile(handle_.Get(), write_.buffer.data(), Size(write_), nullptr, &write_.overlapped)) ||
        !Finish(write_, kWriteWaitMs, &done)) {
      return false;
    }
    return done == Size(write_);
  }

  bool Read(HidReport& report, int32_t timeout_ms) override {
    // A read left pending by an earlier call goes on: its report is the oldest one waiting.
    if (!read_.pending &&
        !Start(read_, ReadFile(handle_.Get(), read_.buffer.data(), Size(read_), nullptr, &read_.overlapped))) {
      return false;
    }
    DWORD done = 0;
    if (!Finish(read_, static_cast<DWORD>(std::max(timeout_ms, 0)), &done) || done == 0) return false;
    report = Normalised(read_.buffer.data(), done);
    return true;
  }

 private:
  static DWORD Size(const Request& request) { return static_cast<DWORD>(request.buffer.size()); }

  // Issues a request's start; true when it completed at once or is now pending.
  bool Start(Request& request, BOOL started_now) {
    if (!started_now && GetLastError() != ERROR_IO_PENDING) return false;
    request.pending = true;
    return true;
  }

  // Waits at most wait_ms for the pending request. If it is still running, it is cancelled;
  // a request that completes before the cancel takes effect keeps its result. A cancel that
  // does not come back in time leaves the request pending, for the next call to collect.
  bool Finish(Request& request, DWORD wait_ms, DWORD* done = nullptr) {
    if (WaitForSingleObject(request.event.Get(), wait_ms) != WAIT_OBJECT_0) {
      CancelIoEx(handle_.Get(), &request.overlapped);
      if (WaitForSingleObject(request.event.Get(), kCancelWaitMs) != WAIT_OBJECT_0) return false;
    }
    request.pending = false;
    DWORD transferred = 0;
    const bool ok = GetOverlappedResult(handle_.Get(), &request.overlapped, &transferred, FALSE);
    request.Reset();
    if (done) *done = transferred;
    return ok;
  }

  // Before the buffers go: cancel what is still running and let the system hand them back.
  void Abandon(Request& request) {
    if (!request.pending) return;
    CancelIoEx(handle_.Get(), &request.overlapped);
    WaitForSingleObject(request.event.Get(), kCancelWaitMs);
  }

  // Windows gives the report ID first; a device with longer reports is cut to the 9 we use.
  static HidReport Normalised(const uint8_t* bytes, DWORD size) {
    HidReport report{};
    std::copy_n(bytes, std::min<size_t>(size, report.size()), report.begin());
    return report;
  }

  UniqueHandle handle_;
  Request read_;
  Request write_;
};

}  // namespace

std::vector<HidInterfaceInfo> ListHidInterfaces() {
  GUID hid_guid;
  HidD_GetHidGuid(&hid_guid);
  HDEVINFO set = SetupDiGetClassDevsA(&hid_guid, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  if (set == INVALID_HANDLE_VALUE) return {};
  std::vector<HidInterfaceInfo> found;
  SP_DEVICE_INTERFACE_DATA interface_data{};
  interface_data.cbSize = sizeof interface_data;
  for (DWORD index = 0; SetupDiEnumDeviceInterfaces(set, nullptr, &hid_guid, index, &interface_data); ++index) {
    HidInterfaceInfo info;
    info.path = InterfacePath(set, interface_data);
    if (!info.path.empty() && ReadAttributes(info.path, info)) found.push_back(std::move(info));
  }
  SetupDiDestroyDeviceInfoList(set);
  return found;
}

std::unique_ptr<HidDevice> OpenHidDevice(const std::string& path) {
  if (path.empty()) return nullptr;
  UniqueHandle handle(OpenShared(path, GENERIC_READ | GENERIC_WRITE, FILE_FLAG_OVERLAPPED));
  if (!handle) return nullptr;
  // Only a HID interface has capabilities: a path naming an ordinary file is refused here.
  PHIDP_PREPARSED_DATA preparsed = nullptr;
  if (!HidD_GetPreparsedData(handle.Get(), &preparsed)) return nullptr;
  HIDP_CAPS caps{};
  const bool described = HidP_GetCaps(preparsed, &caps) == HIDP_STATUS_SUCCESS;
  HidD_FreePreparsedData(preparsed);
  if (!described) return nullptr;
  HidD_SetNumInputBuffers(handle.Get(), kInputBuffers);
  // Reads and writes must be of the device's own report lengths; ours are 9 bytes.
  const auto length = [](USHORT from_caps) {
    return std::clamp<USHORT>(from_caps, static_cast<USHORT>(sizeof(HidReport)), kMaxReportLength);
  };
  auto device = std::make_unique<WindowsHidDevice>(handle.Release(), length(caps.InputReportByteLength),
                                                   length(caps.OutputReportByteLength));
  if (!device->Ready()) return nullptr;
  return device;
}

}  // namespace vmio
