#include "registration/com/host_error.h"

#include <exception>
#include <new>

#include "registration/com/convert.h"
#include "vmio/error.h"

namespace vmio::com {
namespace {

constexpr wchar_t kSource[] = L"VMIO";

void SetThreadErrorInfo(REFIID iid, const std::wstring& description) {
  ICreateErrorInfo* create = nullptr;
  if (FAILED(CreateErrorInfo(&create))) return;
  create->SetGUID(iid);
  create->SetSource(const_cast<LPOLESTR>(kSource));
  create->SetDescription(const_cast<LPOLESTR>(description.c_str()));
  IErrorInfo* info = nullptr;
  if (SUCCEEDED(create->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&info)))) {
    SetErrorInfo(0, info);
    info->Release();
  }
  create->Release();
}

}  // namespace

HRESULT ErrorResult(int32_t number) {
  return static_cast<HRESULT>(0x800A0000u | (static_cast<uint32_t>(number) & 0xFFFF));
}

HRESULT ReportCurrentException(REFIID iid, EXCEPINFO* exception) {
  int32_t number = 5;
  std::string description;
  try {
    throw;
  } catch (const AutomationError& e) {
    number = e.Number();
    description = e.Description();
  } catch (const std::bad_alloc&) {
    number = 7;
    description = StandardErrorText(7);
  } catch (const std::exception& e) {
    description = e.what();
  } catch (...) {
    description = StandardErrorText(5);
  }
  const std::wstring text = Utf16(description);
  SetThreadErrorInfo(iid, text);
  const HRESULT hr = ErrorResult(number);
  if (exception) {
    *exception = EXCEPINFO{};
    exception->bstrSource = SysAllocString(kSource);
    exception->bstrDescription = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    exception->scode = hr;
  }
  return hr;
}

}  // namespace vmio::com
