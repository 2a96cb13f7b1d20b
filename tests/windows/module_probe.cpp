// A DLL holding the library's core, loaded by vmio-windows-checks from another folder: the
// folder it reports must be its own, not the host program's.
#include <cstring>

#include "core/module_file.h"

extern "C" __declspec(dllexport) void ProbeModuleFolder(char* folder, unsigned size) {
  const std::string found = vmio::ModuleFolder();
  if (size == 0) return;
  const size_t n = found.size() < size ? found.size() : size - 1;
  std::memcpy(folder, found.data(), n);
  folder[n] = '\0';
}
