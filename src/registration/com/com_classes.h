#pragma once
// The creatable classes as the system knows them: name, class identifier (from the type
// library), and how an instance is made.
#include <windows.h>

#include <memory>
#include <span>
#include <string>

#include "vmio/object.h"

namespace vmio::com {

struct ComClass {
  const char* name;  // "Axis": ProgIDs VMIO.Axis and VMIO.Axis.1
  const CLSID* clsid;
};

std::span<const ComClass> ComClasses();
const ComClass* FindComClass(REFCLSID clsid);
// A new instance of the library's class of that programmatic name.
std::shared_ptr<Object> CreateInstance(const ComClass& c);

// Answered by QueryInterface on the component's own objects only: how an object passed back
// in by a host is recognised as one of ours (never reaches the type library).
extern const IID kIidLibraryObject;

}  // namespace vmio::com
