// Replaced by the timer registry.
#include "vmio/events.h"

namespace vmio {
void RunPendingEvents() {}
}  // namespace vmio
