#include <dlfcn.h>
#include <link.h>

#include <filesystem>

#include "core/module_file.h"

namespace vmio {

std::string ModuleFolder() {
  namespace fs = std::filesystem;
  Dl_info info{};
  link_map* map = nullptr;
  if (dladdr1(reinterpret_cast<void*>(&ModuleFolder), &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) == 0)
    return {};
  std::error_code ec;
  // The program itself has no name in its link map (dladdr would answer its argv[0], which
  // may be a bare name found through PATH): ask the kernel instead.
  const fs::path file = map && map->l_name && *map->l_name ? fs::path(map->l_name) : fs::path("/proc/self/exe");
  const fs::path resolved = fs::canonical(file, ec);
  return ec ? std::string() : resolved.parent_path().string();
}

}  // namespace vmio
