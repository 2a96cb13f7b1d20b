// DllRegisterServer and DllUnregisterServer. Per creatable class: its CLSID key (the DLL as
// InprocServer32, apartment-threaded; ProgID, version-independent ProgID, type library) and
// the ProgIDs VMIO.<Class> and VMIO.<Class>.1; then the type library itself. Unregistering
// removes exactly these keys and the type library's own registration.
#include <windows.h>

// After windows.h, which they need.
#include <oleauto.h>
#include <olectl.h>

#include <string>

#include "registration/com/com_classes.h"
#include "registration/com/module.h"
#include "vmio_h.h"

namespace vmio::com {
namespace {

constexpr WORD kLibraryMajor = 1;
constexpr WORD kLibraryMinor = 0;

std::wstring GuidText(REFGUID guid) {
  wchar_t text[40] = {};
  StringFromGUID2(guid, text, 40);
  return text;
}

std::wstring Wide(const char* text) { return std::wstring(text, text + strlen(text)); }

bool SetValue(const std::wstring& key, const wchar_t* name, const std::wstring& value) {
  return RegSetKeyValueW(HKEY_CLASSES_ROOT, key.c_str(), name, REG_SZ, value.c_str(),
                         static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t))) == ERROR_SUCCESS;
}

struct ClassKeys {
  std::wstring clsid_key;   // CLSID\{...}
  std::wstring progid;      // VMIO.Axis
  std::wstring progid_1;    // VMIO.Axis.1
  std::wstring clsid_text;  // {...}
};

ClassKeys KeysOf(const ComClass& c) {
  const std::wstring clsid = GuidText(*c.clsid);
  const std::wstring progid = L"VMIO." + Wide(c.name);
  return {L"CLSID\\" + clsid, progid, progid + L".1", clsid};
}

bool RegisterClass(const ComClass& c, const std::wstring& path, const std::wstring& library) {
  const ClassKeys k = KeysOf(c);
  const std::wstring description = Wide(c.name) + L" (Vastmere I/O library)";
  return SetValue(k.clsid_key, nullptr, description) && SetValue(k.clsid_key + L"\\InprocServer32", nullptr, path) &&
         SetValue(k.clsid_key + L"\\InprocServer32", L"ThreadingModel", L"Apartment") &&
         SetValue(k.clsid_key + L"\\ProgID", nullptr, k.progid_1) &&
         SetValue(k.clsid_key + L"\\VersionIndependentProgID", nullptr, k.progid) &&
         SetValue(k.clsid_key + L"\\TypeLib", nullptr, library) &&
         SetValue(k.clsid_key + L"\\Version", nullptr, L"1.0") && SetValue(k.progid, nullptr, description) &&
         SetValue(k.progid + L"\\CLSID", nullptr, k.clsid_text) &&
         SetValue(k.progid + L"\\CurVer", nullptr, k.progid_1) && SetValue(k.progid_1, nullptr, description) &&
         SetValue(k.progid_1 + L"\\CLSID", nullptr, k.clsid_text);
}

// The key with everything under it; a key that is not there is already removed.
bool RemoveTree(const std::wstring& key) {
  const LSTATUS status = RegDeleteTreeW(HKEY_CLASSES_ROOT, key.c_str());
  return status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND;
}

HRESULT Unregister() {
  bool ok = true;
  for (const ComClass& c : ComClasses()) {
    const ClassKeys k = KeysOf(c);
    ok = RemoveTree(k.clsid_key) && ok;
    ok = RemoveTree(k.progid) && ok;
    ok = RemoveTree(k.progid_1) && ok;
  }
  const SYSKIND kind = sizeof(void*) == 8 ? SYS_WIN64 : SYS_WIN32;
  const HRESULT hr = UnRegisterTypeLib(LIBID_VMIO, kLibraryMajor, kLibraryMinor, LOCALE_NEUTRAL, kind);
  // A type library that was never registered is already gone.
  if (FAILED(hr) && hr != TYPE_E_REGISTRYACCESS && hr != TYPE_E_CANTLOADLIBRARY) return SELFREG_E_TYPELIB;
  return ok ? S_OK : SELFREG_E_CLASS;
}

}  // namespace
}  // namespace vmio::com

STDAPI DllRegisterServer() {
  using namespace vmio::com;
  const std::wstring path = ModulePath();
  const std::wstring library = GuidText(LIBID_VMIO);
  for (const ComClass& c : ComClasses()) {
    if (!RegisterClass(c, path, library)) {
      Unregister();
      return SELFREG_E_CLASS;
    }
  }
  ITypeLib* types = nullptr;
  if (FAILED(LoadTypeLibEx(path.c_str(), REGKIND_REGISTER, &types))) {
    Unregister();
    return SELFREG_E_TYPELIB;
  }
  types->Release();
  return S_OK;
}

STDAPI DllUnregisterServer() { return vmio::com::Unregister(); }
