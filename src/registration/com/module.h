#pragma once
// The component's own state: its module handle and what keeps it loaded.
#include <windows.h>

#include <string>

namespace vmio::com {

HMODULE Module();
// The full path of vmio.dll, as registered.
std::wstring ModulePath();

// Every COM object of the component counts itself while alive, so DllCanUnloadNow answers
// S_FALSE while a host holds any of them (or a class factory lock).
void ObjectCreated();
void ObjectDestroyed();
void LockModule(bool lock);

}  // namespace vmio::com
