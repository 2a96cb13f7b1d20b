#include "registration/com/class_factory.h"

#include <new>

#include "platform/windows/core/com_object.h"
#include "registration/com/dispatch_object.h"
#include "registration/com/host_error.h"
#include "registration/com/module.h"

namespace vmio::com {
namespace {

class ClassFactory final : public ComObject<IClassFactory> {
 public:
  explicit ClassFactory(const ComClass& c) : class_(c) { ObjectCreated(); }

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
  ~ClassFactory() override { ObjectDestroyed(); }
  void* Interface(REFIID iid) override {
    return iid == IID_IClassFactory ? static_cast<IClassFactory*>(this) : nullptr;
  }

  const ComClass& class_;
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
