// The stand-in DLL's entry points: class objects for the four creatable classes, and
// registration under the AX200 programmatic names (in-process, apartment-threaded).
#include <windows.h>

// After windows.h, which they need.
#include <olectl.h>

#include <string>

#include "automation.h"
#include "objects.h"
#include "platform/windows/core/com_object.h"

namespace ax200 {
namespace {

HMODULE module_handle = nullptr;

struct Class {
  const CLSID* clsid;
  const wchar_t* progid;
};
constexpr Class kClasses[] = {
    {&CLSID_Application, L"AX200.Application"},
    {&CLSID_Connection, L"AX200.Connection"},
    {&CLSID_Data, L"AX200.Data"},
    {&CLSID_DoorCon, L"AX200.DoorCon"},
};

std::wstring ModulePath() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(module_handle, path, MAX_PATH);
  return path;
}

std::wstring GuidText(REFGUID guid) {
  wchar_t text[40] = {};
  StringFromGUID2(guid, text, 40);
  return text;
}

bool SetValue(const std::wstring& key, const wchar_t* name, const std::wstring& value) {
  return RegSetKeyValueW(HKEY_CLASSES_ROOT, key.c_str(), name, REG_SZ, value.c_str(),
                         static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t))) == ERROR_SUCCESS;
}

class ClassFactory final : public vmio::ComObject<IClassFactory> {
 public:
  explicit ClassFactory(REFCLSID clsid) : clsid_(clsid) {}

  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (outer) return CLASS_E_NOAGGREGATION;
    IUnknown* object = ax200::CreateObject(clsid_);
    if (!object) return E_OUTOFMEMORY;
    const HRESULT hr = object->QueryInterface(iid, out);
    object->Release();
    return hr;
  }
  // The DLL stays loaded anyway (DllCanUnloadNow).
  HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }

 private:
  void* Interface(REFIID iid) override {
    return iid == IID_IClassFactory ? static_cast<IClassFactory*>(this) : nullptr;
  }

  const CLSID clsid_;
};

}  // namespace

ITypeLib* TypeLibrary() {
  static ITypeLib* library = nullptr;
  if (!library) LoadTypeLibEx(ModulePath().c_str(), REGKIND_NONE, &library);
  return library;
}

ITypeInfo* TypeInfoOf(REFGUID guid) {
  ITypeLib* library = TypeLibrary();
  ITypeInfo* info = nullptr;
  if (!library || FAILED(library->GetTypeInfoOfGuid(guid, &info))) return nullptr;
  info->Release();  // the library keeps every type information it has handed out
  return info;
}

}  // namespace ax200

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) {
    ax200::module_handle = instance;
    DisableThreadLibraryCalls(instance);
  }
  return TRUE;
}

STDAPI DllGetClassObject(REFCLSID clsid, REFIID iid, LPVOID* out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  for (const ax200::Class& c : ax200::kClasses) {
    if (*c.clsid != clsid) continue;
    auto* factory = new ax200::ClassFactory(clsid);
    const HRESULT hr = factory->QueryInterface(iid, out);
    factory->Release();
    return hr;
  }
  return CLASS_E_CLASSNOTAVAILABLE;
}

// Never unloaded while the link's window and socket live on this thread.
STDAPI DllCanUnloadNow() { return S_FALSE; }

STDAPI DllRegisterServer() {
  using namespace ax200;
  for (const Class& c : kClasses) {
    const std::wstring clsid = GuidText(*c.clsid), key = L"CLSID\\" + clsid;
    if (!SetValue(key, nullptr, c.progid) || !SetValue(key + L"\\InprocServer32", nullptr, ModulePath()) ||
        !SetValue(key + L"\\InprocServer32", L"ThreadingModel", L"Apartment") ||
        !SetValue(key + L"\\ProgID", nullptr, c.progid) || !SetValue(c.progid, nullptr, c.progid) ||
        !SetValue(std::wstring(c.progid) + L"\\CLSID", nullptr, clsid)) {
      return SELFREG_E_CLASS;
    }
  }
  return S_OK;
}

STDAPI DllUnregisterServer() {
  using namespace ax200;
  for (const Class& c : kClasses) {
    RegDeleteTreeW(HKEY_CLASSES_ROOT, (L"CLSID\\" + GuidText(*c.clsid)).c_str());
    RegDeleteTreeW(HKEY_CLASSES_ROOT, c.progid);
  }
  return S_OK;
}
