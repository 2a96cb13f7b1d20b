#include "vmio/version.h"

namespace vmio {

const char* Version() { return VMIO_VERSION_STRING; }

}  // namespace vmio
