#pragma once
// One library object as a host sees it: IDispatch and the dual interfaces its class has, all
// going through the object's member table, so no behaviour is written twice.
#include <windows.h>

// After windows.h, which they need.
#include <oaidl.h>

#include <memory>

#include "platform/windows/core/com_object.h"
#include "vmio/object.h"
#include "vmio_h.h"

namespace vmio::com {

class DispatchObject final
    : public ComObject<_RS232, _IODeviceEnumerator, _IODeviceInfo, _Callbackable, ISupportErrorInfo> {
 public:
  // A new automation object over target, with one reference for the caller.
  static IDispatch* Wrap(std::shared_ptr<Object> target);
  const std::shared_ptr<Object>& Target() const { return target_; }

  // IDispatch
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override;
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID, ITypeInfo** info) override;
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID, DISPID* ids) override;
  HRESULT STDMETHODCALLTYPE Invoke(DISPID dispid, REFIID iid, LCID, WORD flags, DISPPARAMS* params, VARIANT* result,
                                   EXCEPINFO* exception, UINT* bad_argument) override;

  // _IODevice
  HRESULT STDMETHODCALLTYPE Connect(BSTR Device) override;
  HRESULT STDMETHODCALLTYPE Disconnect() override;
  HRESULT STDMETHODCALLTYPE get_Ports(LONG* Count) override;
  HRESULT STDMETHODCALLTYPE get_PortDirection(LONG Index, LONG* Direction) override;
  HRESULT STDMETHODCALLTYPE get_PortType(LONG Index, LONG* Type) override;
  HRESULT STDMETHODCALLTYPE get_PortName(LONG Index, BSTR* Name) override;
  HRESULT STDMETHODCALLTYPE get_PortValue(LONG Index, VARIANT* Value) override;
  HRESULT STDMETHODCALLTYPE put_PortValue(LONG Index, VARIANT NewValue) override;
  // _RS232
  HRESULT STDMETHODCALLTYPE AddCommand(BSTR Command, LONG* Index) override;
  HRESULT STDMETHODCALLTYPE GetCommand(LONG Index, BSTR* Command) override;
  // _IODeviceEnumerator
  HRESULT STDMETHODCALLTYPE get_Item(VARIANT vntIndexKey, _IODeviceInfo** Info) override;
  HRESULT STDMETHODCALLTYPE get_Count(LONG* Count) override;
  HRESULT STDMETHODCALLTYPE get_NewEnum(IUnknown** Enum) override;
  // _IODeviceInfo
  HRESULT STDMETHODCALLTYPE get_ID(BSTR* ID) override;
  HRESULT STDMETHODCALLTYPE get_Name(BSTR* Name) override;
  // _Callbackable
  HRESULT STDMETHODCALLTYPE Callback() override;
  // ISupportErrorInfo
  HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID iid) override;

 private:
  explicit DispatchObject(std::shared_ptr<Object> target);
  ~DispatchObject() override;

  // The interface pointer for iid when this object's class has that interface.
  void* Interface(REFIID iid) override;
  IDispatch* DefaultInterface();
  const IID& DefaultIid() const;
  // Calls the member with that dispatch id through the member table.
  Variant CallMember(int32_t dispid, MemberKind kind, std::span<const Variant> args);
  // Runs a vtable member: its errors become the HRESULT and error info a host reads.
  template <class F>
  HRESULT Guarded(REFIID iid, F&& body);

  std::shared_ptr<Object> target_;
};

// The result of a member with dispatch id -4: an enumerator over the array's elements.
IUnknown* NewEnumerator(const Variant& items);

}  // namespace vmio::com
