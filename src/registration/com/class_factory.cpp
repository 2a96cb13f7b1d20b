#include "registration/com/class_factory.h"

#include <new>

#include "registration/com/dispatch_object.h"
#include "registration/com/host_error.h"
#include "registration/com/module.h"

namespace vmio::com {
namespace {

class ClassFactory final : public IClassFactory {
 public:
  explicit ClassFactory(const ComClass& c) : class_(c) { ObjectCreated(); }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    *out = iid == IID_IUnknown || iid == IID_IClassFactory ? this : nullptr;
    if (!*out) return E_NOINTERFACE;
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(InterlockedIncrement(&references_)); }
  ULONG STDMETHODCALLTYPE Release() override {
    const LONG left = InterlockedDecrement(&references_);
    if (left == 0) delete this;
    return static_cast<ULONG>(left);
  }

  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (outer) return CLASS_E_NOAGGREGATION;
    IDispatch* object = nullptr;
    try {
      object = DispatchObject::Wrap(vmio::com::CreateInstance(class_));
    } catch (...) {
      return ReportCurrentException(IID_IClassFactory);
    }
    const HRESULT hr = object->QueryInterface(iid, out);
    object->Release();
    return hr;
  }

  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
    LockModule(lock != FALSE);
    return S_OK;
  }

 private:
  ~ClassFactory() { ObjectDestroyed(); }

  const ComClass& class_;
  LONG references_ = 1;
};

}  // namespace

HRESULT GetClassFactory(const ComClass& c, REFIID iid, void** out) {
  auto* factory = new (std::nothrow) ClassFactory(c);
  if (!factory) return E_OUTOFMEMORY;
  const HRESULT hr = factory->QueryInterface(iid, out);
  factory->Release();
  return hr;
}

}  // namespace vmio::com
