#pragma once
// Where the library's own file lies, for the files it reads from beside itself.
#include <string>

namespace vmio {

// The folder of the file that holds the library's code (the shared library when a host loads
// it as one, otherwise the program linked with it), without a trailing separator; "" when the
// system cannot tell.
std::string ModuleFolder();

}  // namespace vmio
