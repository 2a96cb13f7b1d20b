#pragma once
// What every COM object of ours shares: a reference count that starts at one (the creator's
// reference) and deletes the object at zero, and QueryInterface answering IUnknown with the
// first interface and any other IID with what the object's Interface gives.
#include <windows.h>

// After windows.h, which it needs.
#include <unknwn.h>

namespace vmio {

template <class First, class... Rest>
class ComObject : public First, public Rest... {
 public:
  ComObject(const ComObject&) = delete;
  ComObject& operator=(const ComObject&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    *out = iid == IID_IUnknown ? static_cast<First*>(this) : Interface(iid);
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

 protected:
  ComObject() = default;
  virtual ~ComObject() = default;
  // The object's pointer for iid (never IUnknown), or nullptr when it has no such interface.
  virtual void* Interface(REFIID iid) = 0;

 private:
  LONG references_ = 1;
};

}  // namespace vmio
