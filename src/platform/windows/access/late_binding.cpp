#include "platform/windows/access/late_binding.h"

#include <iterator>
#include <vector>

namespace vmio {

void SetText(VARIANT& v, const std::string& utf8) {
  VariantClear(&v);
  const std::wstring wide = Utf16(utf8);
  v.vt = VT_BSTR;
  v.bstrVal = SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
}

ComRef<IDispatch> CreateObject(const wchar_t* progid) {
  ComRef<IDispatch> object;
  CLSID clsid;
  if (FAILED(CLSIDFromProgID(progid, &clsid))) return object;
  if (FAILED(CoCreateInstance(clsid, nullptr, CLSCTX_ALL, IID_IDispatch, object.PutVoid()))) object.Reset();
  return object;
}

HRESULT Invoke(IDispatch* object, const wchar_t* member, WORD flags, std::initializer_list<VARIANT*> args,
               VARIANT* result) {
  if (!object) return E_POINTER;
  DISPID id = DISPID_UNKNOWN;
  LPOLESTR name = const_cast<LPOLESTR>(member);
  if (const HRESULT hr = object->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id); FAILED(hr)) return hr;
  // Automation takes the arguments last first.
  std::vector<VARIANTARG> reversed;
  for (auto it = std::rbegin(args); it != std::rend(args); ++it) reversed.push_back(**it);
  DISPID named = DISPID_PROPERTYPUT;
  DISPPARAMS params{reversed.data(), nullptr, static_cast<UINT>(reversed.size()), 0};
  if (flags == DISPATCH_PROPERTYPUT) {
    params.rgdispidNamedArgs = &named;
    params.cNamedArgs = 1;
  }
  EXCEPINFO exception{};
  UINT bad_argument = 0;
  if (result) VariantInit(result);
  const HRESULT hr =
      object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, result, &exception, &bad_argument);
  SysFreeString(exception.bstrSource);
  SysFreeString(exception.bstrDescription);
  SysFreeString(exception.bstrHelpFile);
  return hr;
}

std::optional<std::string> VariantText(const VARIANT& value) {
  OwnedVariant text;
  if (FAILED(VariantChangeType(text.Ptr(), const_cast<VARIANT*>(&value), 0, VT_BSTR))) return std::nullopt;
  return Utf8(text.Value().bstrVal);
}

std::optional<std::string> GetText(IDispatch* object, const wchar_t* property) {
  OwnedVariant answer;
  if (FAILED(Invoke(object, property, DISPATCH_PROPERTYGET, {}, answer.Ptr()))) return std::nullopt;
  return VariantText(answer.Value());
}

std::optional<bool> GetBool(IDispatch* object, const wchar_t* property) {
  OwnedVariant answer, converted;
  if (FAILED(Invoke(object, property, DISPATCH_PROPERTYGET, {}, answer.Ptr()))) return std::nullopt;
  if (FAILED(VariantChangeType(converted.Ptr(), answer.Ptr(), 0, VT_BOOL))) return std::nullopt;
  return converted.Value().boolVal != VARIANT_FALSE;
}

std::optional<int32_t> GetInt(IDispatch* object, const wchar_t* property) {
  OwnedVariant answer, converted;
  if (FAILED(Invoke(object, property, DISPATCH_PROPERTYGET, {}, answer.Ptr()))) return std::nullopt;
  if (FAILED(VariantChangeType(converted.Ptr(), answer.Ptr(), 0, VT_I4))) return std::nullopt;
  return static_cast<int32_t>(converted.Value().lVal);
}

HRESULT PutText(IDispatch* object, const wchar_t* property, const std::string& value) {
  OwnedVariant text;
  SetText(*text.Ptr(), value);
  return Invoke(object, property, DISPATCH_PROPERTYPUT, {text.Ptr()}, nullptr);
}

}  // namespace vmio
