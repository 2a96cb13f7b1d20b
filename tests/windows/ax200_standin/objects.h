#pragma once
// The stand-in's creatable classes, by CLSID.
#include <objbase.h>

namespace ax200 {

// A new object of the class, as IUnknown; null for a class the stand-in does not have.
IUnknown* CreateObject(REFCLSID clsid);

}  // namespace ax200
