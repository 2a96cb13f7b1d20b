// IEnumVARIANT over a snapshot of an enumerator's records, so a host's For Each works.
#include <algorithm>
#include <new>
#include <vector>

#include "platform/windows/core/com_object.h"
#include "registration/com/convert.h"
#include "registration/com/dispatch_object.h"
#include "registration/com/host_error.h"
#include "registration/com/module.h"

namespace vmio::com {
namespace {

class EnumVariant final : public ComObject<IEnumVARIANT> {
 public:
  EnumVariant(std::shared_ptr<const std::vector<Variant>> items, size_t position)
      : items_(std::move(items)), position_(position) {
    ObjectCreated();
  }

  HRESULT STDMETHODCALLTYPE Next(ULONG count, VARIANT* out, ULONG* fetched) override {
    if (!out || (count > 1 && !fetched)) return E_POINTER;
    ULONG n = 0;
    try {
      for (; n < count && position_ < items_->size(); ++n, ++position_) {
        VariantInit(&out[n]);
        ToVariant((*items_)[position_], &out[n]);
      }
    } catch (...) {
      for (ULONG i = 0; i < n; ++i) VariantClear(&out[i]);
      if (fetched) *fetched = 0;
      return ReportCurrentException(IID_IEnumVARIANT);
    }
    if (fetched) *fetched = n;
    return n == count ? S_OK : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE Skip(ULONG count) override {
    const size_t left = items_->size() - position_;
    position_ += std::min<size_t>(count, left);
    return count <= left ? S_OK : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE Reset() override {
    position_ = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Clone(IEnumVARIANT** out) override {
    if (!out) return E_POINTER;
    *out = new (std::nothrow) EnumVariant(items_, position_);
    return *out ? S_OK : E_OUTOFMEMORY;
  }

 private:
  ~EnumVariant() override { ObjectDestroyed(); }
  void* Interface(REFIID iid) override { return iid == IID_IEnumVARIANT ? static_cast<IEnumVARIANT*>(this) : nullptr; }

  std::shared_ptr<const std::vector<Variant>> items_;
  size_t position_;
};

}  // namespace

IUnknown* NewEnumerator(const Variant& items) {
  const std::span<const Variant> elements = items.AsArray();
  return new EnumVariant(std::make_shared<const std::vector<Variant>>(elements.begin(), elements.end()), 0);
}

}  // namespace vmio::com
