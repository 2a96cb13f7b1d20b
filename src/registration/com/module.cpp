// The entry points the system calls: DllMain, DllGetClassObject, DllCanUnloadNow.
#include "registration/com/module.h"

#include "registration/com/class_factory.h"
#include "registration/com/com_classes.h"

namespace vmio::com {
namespace {

HMODULE module_handle = nullptr;
LONG live_objects = 0;
LONG locks = 0;

}  // namespace

HMODULE Module() { return module_handle; }

std::wstring ModulePath() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD n = GetModuleFileNameW(module_handle, path.data(), static_cast<DWORD>(path.size()));
    if (n < path.size()) {
      path.resize(n);
      return path;
    }
    path.resize(path.size() * 2);
  }
}

void ObjectCreated() { InterlockedIncrement(&live_objects); }
void ObjectDestroyed() { InterlockedDecrement(&live_objects); }
void LockModule(bool lock) { lock ? InterlockedIncrement(&locks) : InterlockedDecrement(&locks); }

}  // namespace vmio::com

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) {
    vmio::com::module_handle = instance;
    DisableThreadLibraryCalls(instance);
  }
  return TRUE;
}

STDAPI DllGetClassObject(REFCLSID clsid, REFIID iid, LPVOID* out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  const vmio::com::ComClass* c = vmio::com::FindComClass(clsid);
  if (!c) return CLASS_E_CLASSNOTAVAILABLE;
  return vmio::com::GetClassFactory(*c, iid, out);
}

STDAPI DllCanUnloadNow() {
  using namespace vmio::com;
  return live_objects == 0 && locks == 0 ? S_OK : S_FALSE;
}
