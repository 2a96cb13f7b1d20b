#include "platform/windows/access/door_events.h"

#include <new>

#include "platform/windows/access/ax200_members.h"
#include "platform/windows/core/com_object.h"

namespace vmio {

// Takes the events of one interface (by its IID) and hands the two it knows on by dispatch id.
class DoorEventSink final : public ComObject<IDispatch> {
 public:
  DoorEventSink(const IID& iid, DISPID door_status, DISPID disconnected, AccessEvents& events)
      : iid_(iid), door_status_(door_status), disconnected_(disconnected), events_(&events) {}

  // The link ends: events still queued for the sink go nowhere.
  void Detach() { events_ = nullptr; }

  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
    if (count) *count = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS*, VARIANT* result, EXCEPINFO*,
                                   UINT*) override {
    if (result) VariantInit(result);
    if (!events_) return S_OK;
    if (id == door_status_) events_->DoorStatus();
    if (id == disconnected_) events_->Disconnected();
    return S_OK;
  }

 private:
  void* Interface(REFIID iid) override {
    return iid == IID_IDispatch || iid == iid_ ? static_cast<IDispatch*>(this) : nullptr;
  }

  const IID iid_;
  const DISPID door_status_;
  const DISPID disconnected_;
  AccessEvents* events_;
};

namespace {

struct EventInterface {
  IID iid{};
  DISPID door_status = DISPID_UNKNOWN;
  DISPID disconnected = DISPID_UNKNOWN;
};

// The coclass's [default, source] interface and the dispatch ids of the two events on it.
bool FindEventInterface(IDispatch* object, EventInterface& found) {
  ComRef<IProvideClassInfo> provider;
  ComRef<ITypeInfo> coclass;
  if (FAILED(object->QueryInterface(IID_IProvideClassInfo, provider.PutVoid())) ||
      FAILED(provider->GetClassInfo(coclass.Put()))) {
    return false;
  }
  TYPEATTR* attributes = nullptr;
  if (FAILED(coclass->GetTypeAttr(&attributes))) return false;
  const UINT implemented = attributes->cImplTypes;
  coclass->ReleaseTypeAttr(attributes);
  ComRef<ITypeInfo> events;
  for (UINT i = 0; i < implemented && !events; ++i) {
    INT flags = 0;
    HREFTYPE reference = 0;
    constexpr INT kDefaultSource = IMPLTYPEFLAG_FDEFAULT | IMPLTYPEFLAG_FSOURCE;
    if (SUCCEEDED(coclass->GetImplTypeFlags(i, &flags)) && (flags & kDefaultSource) == kDefaultSource &&
        SUCCEEDED(coclass->GetRefTypeOfImplType(i, &reference))) {
      coclass->GetRefTypeInfo(reference, events.Put());
    }
  }
  if (!events || FAILED(events->GetTypeAttr(&attributes))) return false;
  found.iid = attributes->guid;
  events->ReleaseTypeAttr(attributes);
  LPOLESTR door_status = const_cast<LPOLESTR>(kAx200.door_status_event);
  LPOLESTR disconnected = const_cast<LPOLESTR>(kAx200.disconnected_event);
  return SUCCEEDED(events->GetIDsOfNames(&door_status, 1, &found.door_status)) &&
         SUCCEEDED(events->GetIDsOfNames(&disconnected, 1, &found.disconnected));
}

}  // namespace

bool DoorEventLink::Advise(IDispatch* door_control, AccessEvents& events) {
  Unadvise();
  EventInterface found;
  ComRef<IConnectionPointContainer> container;
  if (!door_control || !FindEventInterface(door_control, found) ||
      FAILED(door_control->QueryInterface(IID_IConnectionPointContainer, container.PutVoid())) ||
      FAILED(container->FindConnectionPoint(found.iid, point_.Put()))) {
    point_.Reset();
    return false;
  }
  sink_ = new (std::nothrow) DoorEventSink(found.iid, found.door_status, found.disconnected, events);
  if (!sink_ || FAILED(point_->Advise(sink_, &cookie_))) {
    Unadvise();
    return false;
  }
  return true;
}

void DoorEventLink::Unadvise() {
  if (point_ && cookie_) point_->Unadvise(cookie_);
  cookie_ = 0;
  point_.Reset();
  if (sink_) {
    sink_->Detach();
    sink_->Release();
  }
  sink_ = nullptr;
}

}  // namespace vmio
