#include <windows.h>

#include "core/common.h"

namespace vmio {

int32_t TickCount() { return static_cast<int32_t>(GetTickCount()); }

}  // namespace vmio
