#include "dispatch_call.h"

#include <vector>

namespace vmio::comshell {
namespace {

// The number a script sees for a failed call that raised no error of its own.
int32_t NumberOf(HRESULT hr) {
  if (HRESULT_FACILITY(hr) == FACILITY_CONTROL) return HRESULT_CODE(hr);
  switch (hr) {
    case DISP_E_MEMBERNOTFOUND:
    case DISP_E_UNKNOWNNAME:
      return 438;
    case DISP_E_BADPARAMCOUNT:
    case DISP_E_PARAMNOTOPTIONAL:
      return 450;
    case DISP_E_TYPEMISMATCH:
      return 13;
    case DISP_E_OVERFLOW:
      return 6;
    case E_OUTOFMEMORY:
      return 7;
    default:
      return static_cast<int32_t>(hr);
  }
}

// The description the object left in the thread's error info, or the exception record's.
std::string Description(EXCEPINFO& exception) {
  IErrorInfo* info = nullptr;
  if (GetErrorInfo(0, &info) == S_OK && info) {
    BSTR text = nullptr;
    info->GetDescription(&text);
    info->Release();
    std::string description = Utf8(text);
    SysFreeString(text);
    return description;
  }
  return Utf8(exception.bstrDescription);
}

}  // namespace

HostError StandardError(int32_t number) {
  switch (number) {
    case 5:
      return {5, "Invalid procedure call or argument"};
    case 6:
      return {6, "Overflow"};
    case 7:
      return {7, "Out of memory"};
    case 13:
      return {13, "Type mismatch"};
    case 91:
      return {91, "Object variable or With block variable not set"};
    case 429:
      return {429, "ActiveX component can't create object"};
    case 438:
      return {438, "Object doesn't support this property or method"};
    case 450:
      return {450, "Wrong number of arguments or invalid property assignment"};
    default:
      return {number, ""};
  }
}

OwnedVariant CallByName(IDispatch* object, std::string_view member, CallKind kind, std::span<const VARIANT> args) {
  std::wstring name = Utf16(member);
  LPOLESTR names[] = {name.data()};
  DISPID id = DISPID_UNKNOWN;
  if (FAILED(object->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id))) throw StandardError(438);

  std::vector<VARIANT> reversed(args.rbegin(), args.rend());  // Invoke takes them last first
  DISPID put_id = DISPID_PROPERTYPUT;
  DISPPARAMS params{reversed.data(), nullptr, static_cast<UINT>(reversed.size()), 0};
  WORD flags = DISPATCH_METHOD | DISPATCH_PROPERTYGET;
  if (kind == CallKind::kPut) {
    params.rgdispidNamedArgs = &put_id;
    params.cNamedArgs = 1;
    flags = DISPATCH_PROPERTYPUT;
  }
  OwnedVariant result;
  EXCEPINFO exception{};
  UINT bad_argument = 0;
  SetErrorInfo(0, nullptr);  // nothing left over from an earlier call
  const HRESULT hr = object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params,
                                    kind == CallKind::kPut ? nullptr : result.get(), &exception, &bad_argument);
  if (hr == DISP_E_EXCEPTION) {
    if (exception.pfnDeferredFillIn) exception.pfnDeferredFillIn(&exception);
    HostError error{exception.wCode != 0 ? exception.wCode : NumberOf(exception.scode), Description(exception)};
    SysFreeString(exception.bstrSource);
    SysFreeString(exception.bstrDescription);
    SysFreeString(exception.bstrHelpFile);
    throw error;
  }
  if (FAILED(hr)) throw StandardError(NumberOf(hr));
  return result;
}

}  // namespace vmio::comshell
