// The folder of vmio.dll (or of the program linked with the library), in the ANSI code page
// that the narrow file functions take.
#include <windows.h>

#include "core/module_file.h"

namespace vmio {

std::string ModuleFolder() {
  HMODULE module = nullptr;
  if (!GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                          reinterpret_cast<LPCSTR>(&ModuleFolder), &module)) {
    return {};
  }
  std::string path(MAX_PATH, '\0');
  for (;;) {
    const DWORD n = GetModuleFileNameA(module, path.data(), static_cast<DWORD>(path.size()));
    if (n == 0) return {};
    if (n < path.size()) {
      path.resize(n);
      break;
    }
    path.resize(path.size() * 2);
  }
  const size_t slash = path.find_last_of("\\/");
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

}  // namespace vmio
