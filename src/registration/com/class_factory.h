#pragma once
#include <windows.h>

#include "registration/com/com_classes.h"

namespace vmio::com {

// The class factory of one creatable class, asked for as iid (IClassFactory).
HRESULT GetClassFactory(const ComClass& c, REFIID iid, void** out);

}  // namespace vmio::com
