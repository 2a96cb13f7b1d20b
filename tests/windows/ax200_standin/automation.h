#pragma once
// What every stand-in object shares: the COM object base, and IDispatch answered from the
// stand-in's own type library (names and calls both), so that a late-binding client sees
// exactly the members the IDL declares.
#include <windows.h>

// After windows.h, which they need.
#include <oleauto.h>

#include "ax200_standin_h.h"
#include "platform/windows/core/com_object.h"

namespace ax200 {

// The stand-in's type library, loaded from this DLL's TYPELIB resource on first use.
ITypeLib* TypeLibrary();
// The type information of one interface or class of it; null when it cannot be loaded.
ITypeInfo* TypeInfoOf(REFGUID guid);

// An object whose default interface is the dual interface Dual, with any Others beside it.
template <class Dual, class... Others>
class Automation : public vmio::ComObject<Dual, Others...> {
 public:
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
    if (!count) return E_POINTER;
    *count = 1;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID, ITypeInfo** out) override {
    if (!out) return E_POINTER;
    *out = index == 0 ? TypeInfoOf(__uuidof(Dual)) : nullptr;
    if (!*out) return DISP_E_BADINDEX;
    (*out)->AddRef();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) override {
    ITypeInfo* info = TypeInfoOf(__uuidof(Dual));
    return info ? DispGetIDsOfNames(info, names, count, ids) : E_UNEXPECTED;
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params, VARIANT* result,
                                   EXCEPINFO* exception, UINT* bad_argument) override {
    ITypeInfo* info = TypeInfoOf(__uuidof(Dual));
    if (!info) return E_UNEXPECTED;
    return DispInvoke(static_cast<Dual*>(this), info, id, flags, params, result, exception, bad_argument);
  }

 protected:
  // The default interface; an object with Others extends this.
  void* Interface(REFIID iid) override {
    return iid == IID_IDispatch || iid == __uuidof(Dual) ? static_cast<Dual*>(this) : nullptr;
  }
};

}  // namespace ax200
