#pragma once
// What every stand-in object shares: reference counting, and IDispatch answered from the
// stand-in's own type library (names and calls both), so that a late-binding client sees
// exactly the members the IDL declares.
#include <windows.h>

// After windows.h, which they need.
#include <oleauto.h>

#include "ax200_standin_h.h"

namespace ax200 {

// The stand-in's type library, loaded from this DLL's TYPELIB resource on first use.
ITypeLib* TypeLibrary();
// The type information of one interface or class of it; null when it cannot be loaded.
ITypeInfo* TypeInfoOf(REFGUID guid);

template <class Interface>
class Automation : public Interface {
 public:
  Automation() = default;
  Automation(const Automation&) = delete;
  Automation& operator=(const Automation&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (iid == IID_IUnknown || iid == IID_IDispatch || iid == __uuidof(Interface)) {
      *out = static_cast<Interface*>(this);
    } else {
      *out = Extra(iid);
    }
    if (!*out) return E_NOINTERFACE;
    this->AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++references_); }
  ULONG STDMETHODCALLTYPE Release() override {
    const LONG left = --references_;
    if (left == 0) delete this;
    return static_cast<ULONG>(left);
  }

  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
    if (!count) return E_POINTER;
    *count = 1;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID, ITypeInfo** out) override {
    if (!out) return E_POINTER;
    *out = index == 0 ? TypeInfoOf(__uuidof(Interface)) : nullptr;
    if (!*out) return DISP_E_BADINDEX;
    (*out)->AddRef();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) override {
    ITypeInfo* info = TypeInfoOf(__uuidof(Interface));
    return info ? DispGetIDsOfNames(info, names, count, ids) : E_UNEXPECTED;
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params, VARIANT* result,
                                   EXCEPINFO* exception, UINT* bad_argument) override {
    ITypeInfo* info = TypeInfoOf(__uuidof(Interface));
    if (!info) return E_UNEXPECTED;
    return DispInvoke(static_cast<Interface*>(this), info, id, flags, params, result, exception, bad_argument);
  }

 protected:
  virtual ~Automation() = default;
  // Interfaces beyond the default one (connection points, class information).
  virtual void* Extra(REFIID) { return nullptr; }

 private:
  LONG references_ = 1;
};

}  // namespace ax200
