#include "registration/com/dispatch_object.h"

#include <vector>

#include "core/errors.h"
#include "devices/rs232/rs232.h"
#include "registration/com/com_classes.h"
#include "registration/com/convert.h"
#include "registration/com/host_error.h"
#include "registration/com/module.h"
#include "vmio/callbackable.h"
#include "vmio/enumerator.h"
#include "vmio/io_device.h"

namespace vmio::com {
namespace {

// Dispatch ids of the interfaces' members: those of the member tables.
enum : int32_t {
  kConnect = 1,
  kDisconnect = 2,
  kPorts = 3,
  kPortDirection = 4,
  kPortType = 5,
  kPortName = 6,
  kPortValue = 7,
  kAddCommand = 101,
  kGetCommand = 102,
  kCallback = 101,
  kItem = 0,
  kCount = 1,
  kNewEnum = -4,
  kID = 1,
  kName = 2,
};

template <class T>
bool Is(const std::shared_ptr<Object>& target) {
  return dynamic_cast<T*>(target.get()) != nullptr;
}

// A member's arguments as the host passed them: rgvarg holds them last first.
std::vector<Variant> Arguments(const DISPPARAMS& params, UINT* bad_argument) {
  std::vector<Variant> args;
  args.reserve(params.cArgs);
  for (UINT i = params.cArgs; i-- > 0;) {
    if (bad_argument) *bad_argument = i;
    args.push_back(FromVariant(params.rgvarg[i]));
  }
  return args;
}

}  // namespace

DispatchObject::DispatchObject(std::shared_ptr<Object> target) : target_(std::move(target)) { ObjectCreated(); }

DispatchObject::~DispatchObject() { ObjectDestroyed(); }

IDispatch* DispatchObject::Wrap(std::shared_ptr<Object> target) {
  return (new DispatchObject(std::move(target)))->DefaultInterface();
}

const IID& DispatchObject::DefaultIid() const {
  if (Is<RS232>(target_)) return IID__RS232;
  if (Is<IODevice>(target_)) return IID__IODevice;
  if (Is<IODeviceEnumerator>(target_)) return IID__IODeviceEnumerator;
  if (Is<Callbackable>(target_)) return IID__Callbackable;
  return IID__IODeviceInfo;
}

IDispatch* DispatchObject::DefaultInterface() {
  const IID& iid = DefaultIid();
  if (iid == IID__RS232 || iid == IID__IODevice) return static_cast<_RS232*>(this);
  if (iid == IID__IODeviceEnumerator) return static_cast<_IODeviceEnumerator*>(this);
  if (iid == IID__Callbackable) return static_cast<_Callbackable*>(this);
  // Records, and any object of no interface of the library (late-bound calls only).
  return static_cast<_IODeviceInfo*>(this);
}

void* DispatchObject::Interface(REFIID iid) {
  if (iid == IID_ISupportErrorInfo) return static_cast<ISupportErrorInfo*>(this);
  if (iid == kIidLibraryObject) return this;
  if (iid == IID_IDispatch) return DefaultInterface();
  // _RS232 extends _IODevice, so one vtable serves both.
  if ((iid == IID__RS232 && Is<RS232>(target_)) || (iid == IID__IODevice && Is<IODevice>(target_))) {
    return static_cast<_RS232*>(this);
  }
  if (iid == IID__IODeviceEnumerator && Is<IODeviceEnumerator>(target_)) return static_cast<_IODeviceEnumerator*>(this);
  if (iid == IID__IODeviceInfo && Is<IODeviceInfo>(target_)) return static_cast<_IODeviceInfo*>(this);
  if (iid == IID__Callbackable && Is<Callbackable>(target_)) return static_cast<_Callbackable*>(this);
  return nullptr;
}

HRESULT DispatchObject::GetTypeInfoCount(UINT* count) {
  if (!count) return E_POINTER;
  *count = 1;
  return S_OK;
}

HRESULT DispatchObject::GetTypeInfo(UINT index, LCID, ITypeInfo** info) {
  if (!info) return E_POINTER;
  *info = nullptr;
  if (index != 0) return DISP_E_BADINDEX;
  ITypeLib* library = nullptr;
  HRESULT hr = LoadTypeLibEx(ModulePath().c_str(), REGKIND_NONE, &library);
  if (FAILED(hr)) return hr;
  hr = library->GetTypeInfoOfGuid(DefaultIid(), info);
  library->Release();
  return hr;
}

HRESULT DispatchObject::GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID, DISPID* ids) {
  if (iid != IID_NULL) return DISP_E_UNKNOWNINTERFACE;
  if (!names || !ids) return E_POINTER;
  for (UINT i = 0; i < count; ++i) ids[i] = DISPID_UNKNOWN;
  if (count == 0) return S_OK;
  const std::string name = Utf8(names[0], wcslen(names[0]));
  const MemberTable& table = target_->Members();
  const Member* member = table.Find(name, MemberKind::kMethod);
  if (!member) member = table.Find(name, MemberKind::kPropertyGet);
  if (!member) member = table.Find(name, MemberKind::kPropertyPut);
  if (!member) return DISP_E_UNKNOWNNAME;
  ids[0] = member->dispid;
  // Members take no named arguments.
  return count > 1 ? DISP_E_UNKNOWNNAME : S_OK;
}

HRESULT DispatchObject::Invoke(DISPID dispid, REFIID iid, LCID, WORD flags, DISPPARAMS* params, VARIANT* result,
                               EXCEPINFO* exception, UINT* bad_argument) {
  if (iid != IID_NULL) return DISP_E_UNKNOWNINTERFACE;
  if (!params) return E_POINTER;
  const bool put = (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) != 0;
  const MemberTable& table = target_->Members();
  const Member* member = nullptr;
  if (put) {
    member = table.Find(dispid, MemberKind::kPropertyPut);
    if (params->cNamedArgs != 1 || params->rgdispidNamedArgs[0] != DISPID_PROPERTYPUT) return DISP_E_PARAMNOTOPTIONAL;
  } else {
    // As a late-bound call by name does: a method, else a property read.
    member = table.Find(dispid, MemberKind::kMethod);
    if (!member) member = table.Find(dispid, MemberKind::kPropertyGet);
    if (params->cNamedArgs != 0) return DISP_E_NONAMEDARGS;
  }
  if (!member) return DISP_E_MEMBERNOTFOUND;
  try {
    const std::vector<Variant> args = Arguments(*params, bad_argument);
    const Variant value = target_->Invoke(*member, args);
    if (result) {
      VariantInit(result);
      if (member->dispid == DISPID_NEWENUM) {
        V_VT(result) = VT_UNKNOWN;
        V_UNKNOWN(result) = NewEnumerator(value);
      } else {
        ToVariant(value, result);
      }
    }
    return S_OK;
  } catch (...) {
    ReportCurrentException(DefaultIid(), exception);
    return DISP_E_EXCEPTION;
  }
}

Variant DispatchObject::CallMember(int32_t dispid, MemberKind kind, std::span<const Variant> args) {
  const Member* member = target_->Members().Find(dispid, kind);
  if (!member) Raise(kMemberNotSupported);
  return target_->Invoke(*member, args);
}

template <class F>
HRESULT DispatchObject::Guarded(REFIID iid, F&& body) {
  try {
    body();
    return S_OK;
  } catch (...) {
    return ReportCurrentException(iid);
  }
}

HRESULT DispatchObject::Connect(BSTR Device) {
  return Guarded(IID__IODevice, [&] {
    const Variant args[] = {Variant(Utf8(Device))};
    CallMember(kConnect, MemberKind::kMethod, args);
  });
}

HRESULT DispatchObject::Disconnect() {
  return Guarded(IID__IODevice, [&] { CallMember(kDisconnect, MemberKind::kMethod, {}); });
}

HRESULT DispatchObject::get_Ports(LONG* Count) {
  if (!Count) return E_POINTER;
  return Guarded(IID__IODevice, [&] { *Count = CallMember(kPorts, MemberKind::kPropertyGet, {}).AsInt32(); });
}

HRESULT DispatchObject::get_PortDirection(LONG Index, LONG* Direction) {
  if (!Direction) return E_POINTER;
  return Guarded(IID__IODevice, [&] {
    const Variant args[] = {Variant(static_cast<int32_t>(Index))};
    *Direction = CallMember(kPortDirection, MemberKind::kPropertyGet, args).AsInt32();
  });
}

HRESULT DispatchObject::get_PortType(LONG Index, LONG* Type) {
  if (!Type) return E_POINTER;
  return Guarded(IID__IODevice, [&] {
    const Variant args[] = {Variant(static_cast<int32_t>(Index))};
    *Type = CallMember(kPortType, MemberKind::kPropertyGet, args).AsInt32();
  });
}

HRESULT DispatchObject::get_PortName(LONG Index, BSTR* Name) {
  if (!Name) return E_POINTER;
  *Name = nullptr;
  return Guarded(IID__IODevice, [&] {
    const Variant args[] = {Variant(static_cast<int32_t>(Index))};
    *Name = NewBstr(CallMember(kPortName, MemberKind::kPropertyGet, args).AsString());
  });
}

HRESULT DispatchObject::get_PortValue(LONG Index, VARIANT* Value) {
  if (!Value) return E_POINTER;
  VariantInit(Value);
  return Guarded(IID__IODevice, [&] {
    const Variant args[] = {Variant(static_cast<int32_t>(Index))};
    ToVariant(CallMember(kPortValue, MemberKind::kPropertyGet, args), Value);
  });
}

HRESULT DispatchObject::put_PortValue(LONG Index, VARIANT NewValue) {
  return Guarded(IID__IODevice, [&] {
    const Variant args[] = {Variant(static_cast<int32_t>(Index)), FromVariant(NewValue)};
    CallMember(kPortValue, MemberKind::kPropertyPut, args);
  });
}

HRESULT DispatchObject::AddCommand(BSTR Command, LONG* Index) {
  if (!Index) return E_POINTER;
  return Guarded(IID__RS232, [&] {
    const Variant args[] = {Variant(Utf8(Command))};
    *Index = CallMember(kAddCommand, MemberKind::kMethod, args).AsInt32();
  });
}

HRESULT DispatchObject::GetCommand(LONG Index, BSTR* Command) {
  if (!Command) return E_POINTER;
  *Command = nullptr;
  return Guarded(IID__RS232, [&] {
    const Variant args[] = {Variant(static_cast<int32_t>(Index))};
    *Command = NewBstr(CallMember(kGetCommand, MemberKind::kMethod, args).AsString());
  });
}

HRESULT DispatchObject::get_Item(VARIANT vntIndexKey, _IODeviceInfo** Info) {
  if (!Info) return E_POINTER;
  *Info = nullptr;
  return Guarded(IID__IODeviceEnumerator, [&] {
    const Variant args[] = {FromVariant(vntIndexKey)};
    const Variant record = CallMember(kItem, MemberKind::kPropertyGet, args);
    IDispatch* object = Wrap(record.AsObject());
    const HRESULT hr = object->QueryInterface(IID__IODeviceInfo, reinterpret_cast<void**>(Info));
    object->Release();
    if (FAILED(hr)) Raise(kTypeMismatch);
  });
}

HRESULT DispatchObject::get_Count(LONG* Count) {
  if (!Count) return E_POINTER;
  return Guarded(IID__IODeviceEnumerator, [&] { *Count = CallMember(kCount, MemberKind::kPropertyGet, {}).AsInt32(); });
}

HRESULT DispatchObject::get_NewEnum(IUnknown** Enum) {
  if (!Enum) return E_POINTER;
  *Enum = nullptr;
  return Guarded(IID__IODeviceEnumerator,
                 [&] { *Enum = NewEnumerator(CallMember(kNewEnum, MemberKind::kPropertyGet, {})); });
}

HRESULT DispatchObject::get_ID(BSTR* ID) {
  if (!ID) return E_POINTER;
  *ID = nullptr;
  return Guarded(IID__IODeviceInfo, [&] { *ID = NewBstr(CallMember(kID, MemberKind::kPropertyGet, {}).AsString()); });
}

HRESULT DispatchObject::get_Name(BSTR* Name) {
  if (!Name) return E_POINTER;
  *Name = nullptr;
  return Guarded(IID__IODeviceInfo,
                 [&] { *Name = NewBstr(CallMember(kName, MemberKind::kPropertyGet, {}).AsString()); });
}

HRESULT DispatchObject::Callback() {
  return Guarded(IID__Callbackable, [&] { CallMember(kCallback, MemberKind::kMethod, {}); });
}

HRESULT DispatchObject::InterfaceSupportsErrorInfo(REFIID iid) {
  return iid == IID__IODevice || iid == IID__RS232 || iid == IID__IODeviceEnumerator || iid == IID__IODeviceInfo ||
                 iid == IID__Callbackable
             ? S_OK
             : S_FALSE;
}

}  // namespace vmio::com
