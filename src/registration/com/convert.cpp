#include "registration/com/convert.h"

#include <limits>
#include <new>
#include <vector>

#include "core/errors.h"
#include "registration/com/com_classes.h"
#include "registration/com/dispatch_object.h"

namespace vmio::com {
namespace {

// Owns a VARIANT for the length of a conversion.
struct VariantHolder {
  VARIANT v;
  VariantHolder() { VariantInit(&v); }
  ~VariantHolder() { VariantClear(&v); }
  VariantHolder(const VariantHolder&) = delete;
  VariantHolder& operator=(const VariantHolder&) = delete;
};

Variant Converted(const VARIANT& value, VARTYPE to) {
  VariantHolder h;
  const HRESULT hr = VariantChangeType(&h.v, const_cast<VARIANT*>(&value), 0, to);
  if (hr == DISP_E_OVERFLOW) Raise(kOverflow);
  if (FAILED(hr)) Raise(kTypeMismatch);
  return to == VT_I4 ? Variant(static_cast<int32_t>(h.v.lVal)) : Variant(h.v.dblVal);
}

Variant FromObject(IUnknown* unknown) {
  if (!unknown) return Variant(std::shared_ptr<Object>());
  DispatchObject* ours = nullptr;
  if (FAILED(unknown->QueryInterface(kIidLibraryObject, reinterpret_cast<void**>(&ours))) || !ours)
    Raise(kTypeMismatch);
  Variant result(ours->Target());
  ours->Release();
  return result;
}

Variant FromArray(SAFEARRAY* array, VARTYPE element) {
  if (!array || SafeArrayGetDim(array) != 1) Raise(kTypeMismatch);
  LONG low = 0, high = -1;
  SafeArrayGetLBound(array, 1, &low);
  SafeArrayGetUBound(array, 1, &high);
  std::vector<Variant> items;
  for (LONG i = low; i <= high; ++i) {
    VariantHolder item;
    if (element == VT_VARIANT) {
      if (FAILED(SafeArrayGetElement(array, &i, &item.v))) Raise(kTypeMismatch);
    } else {
      item.v.vt = element;
      if (FAILED(SafeArrayGetElement(array, &i, &item.v.byref))) Raise(kTypeMismatch);
    }
    items.push_back(FromVariant(item.v));
  }
  const int32_t type = element == VT_BSTR ? vtString : element == VT_DISPATCH ? vtDispatch : vtVariant;
  return Variant::Array(type, std::move(items));
}

VARTYPE ElementType(int32_t type) {
  switch (type & ~vtArray) {
    case vtString:
      return VT_BSTR;
    case vtDispatch:
      return VT_DISPATCH;
    default:
      return VT_VARIANT;
  }
}

}  // namespace

BSTR NewBstr(const std::string& text) {
  const std::wstring wide = Utf16(text);
  BSTR b = SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
  if (!b) Raise(kOutOfMemory);
  return b;
}

Variant FromVariant(const VARIANT& value) {
  if (V_VT(&value) & VT_BYREF) {
    VariantHolder h;
    if (FAILED(VariantCopyInd(&h.v, const_cast<VARIANT*>(&value)))) Raise(kTypeMismatch);
    return FromVariant(h.v);
  }
  if (V_VT(&value) & VT_ARRAY) return FromArray(V_ARRAY(&value), V_VT(&value) & VT_TYPEMASK);
  switch (V_VT(&value)) {
    case VT_EMPTY:
      return Variant();
    case VT_BOOL:
      return Variant(V_BOOL(&value) != VARIANT_FALSE);
    case VT_UI1:
      return Variant(static_cast<uint8_t>(V_UI1(&value)));
    case VT_I2:
      return Variant(static_cast<int16_t>(V_I2(&value)));
    case VT_I4:
      return Variant(static_cast<int32_t>(V_I4(&value)));
    case VT_R8:
      return Variant(V_R8(&value));
    case VT_R4:
      return Variant(static_cast<double>(V_R4(&value)));
    case VT_BSTR:
      return Variant(Utf8(V_BSTR(&value)));
    case VT_DISPATCH:
      return FromObject(V_DISPATCH(&value));
    case VT_UNKNOWN:
      return FromObject(V_UNKNOWN(&value));
    case VT_I1:
    case VT_UI2:
    case VT_UI4:
    case VT_INT:
    case VT_UINT:
    case VT_I8:
    case VT_UI8:
      return Converted(value, VT_I4);
    case VT_CY:
    case VT_DECIMAL:
      return Converted(value, VT_R8);
    default:
      Raise(kTypeMismatch);
  }
}

void ToVariant(const Variant& value, VARIANT* out) {
  const int32_t type = value.VarType();
  if (type & vtArray) {
    const std::span<const Variant> items = value.AsArray();
    const VARTYPE element = ElementType(type);
    SAFEARRAY* array = SafeArrayCreateVector(element, 0, static_cast<ULONG>(items.size()));
    if (!array) Raise(kOutOfMemory);
    try {
      for (LONG i = 0; i < static_cast<LONG>(items.size()); ++i) {
        VariantHolder item;
        ToVariant(items[static_cast<size_t>(i)], &item.v);
        const void* data = element == VT_VARIANT ? static_cast<void*>(&item.v)
                           : element == VT_BSTR  ? static_cast<void*>(V_BSTR(&item.v))
                                                 : static_cast<void*>(V_DISPATCH(&item.v));
        // SafeArrayPutElement copies what it is given.
        if (FAILED(SafeArrayPutElement(array, &i, const_cast<void*>(data)))) Raise(kOutOfMemory);
      }
    } catch (...) {
      SafeArrayDestroy(array);
      throw;
    }
    V_VT(out) = VT_ARRAY | element;
    V_ARRAY(out) = array;
    return;
  }
  switch (type) {
    case vtEmpty:
      V_VT(out) = VT_EMPTY;
      return;
    case vtBool:
      V_VT(out) = VT_BOOL;
      V_BOOL(out) = value.AsBool() ? VARIANT_TRUE : VARIANT_FALSE;
      return;
    case vtUI1:
      V_VT(out) = VT_UI1;
      V_UI1(out) = static_cast<BYTE>(value.AsInt32());
      return;
    case vtI2:
      V_VT(out) = VT_I2;
      V_I2(out) = static_cast<SHORT>(value.AsInt32());
      return;
    case vtI4:
      V_VT(out) = VT_I4;
      V_I4(out) = value.AsInt32();
      return;
    case vtR8:
      V_VT(out) = VT_R8;
      V_R8(out) = value.AsDouble();
      return;
    case vtString:
      V_BSTR(out) = NewBstr(value.AsString());
      V_VT(out) = VT_BSTR;
      return;
    default:  // an object reference
      V_DISPATCH(out) = value.AsObject() ? DispatchObject::Wrap(value.AsObject()) : nullptr;
      V_VT(out) = VT_DISPATCH;
      return;
  }
}

}  // namespace vmio::com
