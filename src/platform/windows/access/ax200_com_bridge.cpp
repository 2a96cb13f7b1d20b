// The AX200 software on Windows: its own automation objects, called late-bound (names in
// ax200_members.h), the door-control object's events received through its connection point.
//
// The application and connection objects are created on first use and kept; each list request
// asks a new data object; the door-control object, with its events, is kept for the bridge's
// life. Any failure (a class not registered, a call raising, no COM on this thread) reads as
// the software absent, a list not valid or an empty status: never an error of its own.
// The objects deliver their events through this thread's message loop, so WaitForEvents pumps
// messages; an event handle set by the sink ends the wait as soon as one has run.
#include <windows.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "access/access_bridge.h"
#include "platform/windows/access/ax200_members.h"
#include "platform/windows/access/door_events.h"
#include "platform/windows/access/late_binding.h"
#include "platform/windows/core/unique_handle.h"

namespace vmio {
namespace {

// The records of an array answer, in order; nothing when the answer is not an array of objects.
std::optional<std::vector<ComRef<IDispatch>>> Records(const VARIANT& answer) {
  OwnedVariant direct;
  if (FAILED(VariantCopyInd(direct.Ptr(), const_cast<VARIANT*>(&answer)))) return std::nullopt;
  std::vector<ComRef<IDispatch>> records;
  const VARTYPE type = direct.Value().vt;
  if (type == VT_EMPTY) return records;
  SAFEARRAY* array = direct.Value().parray;
  const VARTYPE element = type & VT_TYPEMASK;
  LONG low = 0, high = -1;
  if (!(type & VT_ARRAY) || (element != VT_VARIANT && element != VT_DISPATCH) || !array ||
      SafeArrayGetDim(array) != 1 || FAILED(SafeArrayGetLBound(array, 1, &low)) ||
      FAILED(SafeArrayGetUBound(array, 1, &high))) {
    return std::nullopt;
  }
  for (LONG i = low; i <= high; ++i) {
    ComRef<IDispatch> record;
    if (element == VT_DISPATCH) {
      if (FAILED(SafeArrayGetElement(array, &i, record.PutVoid()))) return std::nullopt;
    } else {
      OwnedVariant item, object;
      if (FAILED(SafeArrayGetElement(array, &i, item.Ptr())) ||
          FAILED(VariantChangeType(object.Ptr(), item.Ptr(), 0, VT_DISPATCH))) {
        return std::nullopt;
      }
      std::swap(*record.Put(), object.Ptr()->pdispVal);  // the record keeps the variant's reference
      object.Ptr()->vt = VT_EMPTY;
    }
    if (!record) return std::nullopt;
    records.push_back(std::move(record));
  }
  return records;
}

class ComAccessBridge final : public AccessBridge, private AccessEvents {
 public:
  explicit ComAccessBridge(AccessEvents& events)
      : events_(events),
        com_started_(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))),
        arrived_(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {}

  ~ComAccessBridge() override {
    link_.Unadvise();
    door_control_.Reset();
    connection_.Reset();
    application_.Reset();
    if (com_started_) CoUninitialize();
  }

  bool Attach(const std::string& device) override {
    if (!application_) application_ = CreateObject(kAx200.application);
    if (!application_ || FAILED(PutText(application_.Get(), kAx200.device, device))) return false;
    return GetBool(application_.Get(), kAx200.present).value_or(false);
  }

  void SetAddress(const std::string& address) override {
    if (!connection_) connection_ = CreateObject(kAx200.connection);
    if (connection_) PutText(connection_.Get(), kAx200.local_address, address);
  }

  AccessDoorList Doors(const std::string& a, const std::string& b) override {
    const ComRef<IDispatch> data = CreateObject(kAx200.data);
    OwnedVariant first, second, answer;
    SetText(*first.Ptr(), a);
    SetText(*second.Ptr(), b);
    VARIANT_BOOL valid = VARIANT_FALSE;
    VARIANT valid_ref;
    valid_ref.vt = VT_BOOL | VT_BYREF;
    valid_ref.pboolVal = &valid;
    if (!data ||
        FAILED(Invoke(data.Get(), kAx200.get_doors, DISPATCH_METHOD, {first.Ptr(), second.Ptr(), &valid_ref},
                      answer.Ptr())) ||
        valid == VARIANT_FALSE) {
      return {};
    }
    const auto records = Records(answer.Value());
    if (!records) return {};
    AccessDoorList list{.valid = true, .doors = {}};
    for (const ComRef<IDispatch>& record : *records) {
      const std::optional<int32_t> id = GetInt(record.Get(), kAx200.record_id);
      std::optional<std::string> name = GetText(record.Get(), kAx200.record_name);
      if (!id || !name) return {};
      list.doors.push_back({*id, std::move(*name)});
    }
    return list;
  }

  std::optional<std::vector<AccessSensor>> Sensors() override {
    const ComRef<IDispatch> data = CreateObject(kAx200.data);
    OwnedVariant answer;
    if (!data || FAILED(Invoke(data.Get(), kAx200.get_sensors, DISPATCH_METHOD, {}, answer.Ptr()))) {
      return std::nullopt;
    }
    const auto records = Records(answer.Value());
    if (!records) return std::nullopt;
    std::vector<AccessSensor> sensors;
    for (const ComRef<IDispatch>& record : *records) {
      std::optional<std::string> id = GetText(record.Get(), kAx200.record_id);
      std::optional<std::string> name = GetText(record.Get(), kAx200.record_name);
      std::optional<std::string> value = GetText(record.Get(), kAx200.record_value);
      if (!id || !name || !value) return std::nullopt;
      sensors.push_back({std::move(*id), std::move(*name), std::move(*value)});
    }
    return sensors;
  }

  void RequestStatus(const std::string& id) override {
    OwnedVariant door;
    SetText(*door.Ptr(), id);
    // A request that cannot be made is answered at once: the software has gone.
    if (FAILED(Invoke(DoorControl(), kAx200.request_status, DISPATCH_METHOD, {door.Ptr()}, nullptr))) Disconnected();
  }

  std::string Status() const override {
    if (gone_ || !door_control_) return {};
    return GetText(door_control_.Get(), kAx200.status).value_or(std::string());
  }

  void Command(DoorCommand command, const std::string& id) override {
    OwnedVariant door;
    SetText(*door.Ptr(), id);
    Invoke(DoorControl(), CommandMember(command), DISPATCH_METHOD, {door.Ptr()}, nullptr);
  }

  void WaitForEvents(WaitClock::time_point deadline) override {
    PumpingWait(arrived_ ? reinterpret_cast<WaitHandle>(arrived_.Get()) : kNoWaitHandle, deadline);
  }

  // The events come through the thread's message loop, which only the pumping wait runs.
  engine::Task<void> AwaitEvents(engine::Io&, WaitClock::time_point deadline) override {
    WaitForEvents(deadline);
    co_return;
  }

 private:
  // The door-control object, created with its events linked on first use.
  IDispatch* DoorControl() {
    if (!door_control_) {
      door_control_ = CreateObject(kAx200.door_control);
      if (door_control_) link_.Advise(door_control_.Get(), *this);
    }
    return door_control_.Get();
  }

  // The sink's events: noted, handed on, and the pumping wait woken.
  void DoorStatus() override {
    gone_ = false;
    if (arrived_) SetEvent(arrived_.Get());
    events_.DoorStatus();
  }
  void Disconnected() override {
    gone_ = true;
    if (arrived_) SetEvent(arrived_.Get());
    events_.Disconnected();
  }

  AccessEvents& events_;
  const bool com_started_;      // this bridge's CoInitializeEx succeeded and is balanced at its end
  const UniqueHandle arrived_;  // set whenever an event has run
  ComRef<IDispatch> application_;
  ComRef<IDispatch> connection_;
  ComRef<IDispatch> door_control_;
  DoorEventLink link_;
  bool gone_ = false;  // Disconnected came after the last answer
};

}  // namespace

std::unique_ptr<AccessBridge> CreateAccessBridge(AccessEvents& events) {
  return std::make_unique<ComAccessBridge>(events);
}

}  // namespace vmio
