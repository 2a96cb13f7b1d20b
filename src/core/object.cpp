#include "core/errors.h"
#include "vmio/io_device.h"

namespace vmio {

Variant Object::Call(std::string_view, std::span<const Variant>) { Raise(438); }

}  // namespace vmio
