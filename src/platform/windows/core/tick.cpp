#include <windows.h>

#include "core/tick_source.h"

namespace vmio {

// Its low 32 bits are what GetTickCount gives.
int64_t SystemMilliseconds() { return static_cast<int64_t>(GetTickCount64()); }

}  // namespace vmio
