#pragma once
// Points the HID seam at a simulator's device tree for as long as it lives.
#include <cstdlib>
#include <optional>
#include <string>

namespace vmio::test {

class SysfsRoot {
 public:
  explicit SysfsRoot(const std::string& root) {
    if (const char* old = std::getenv("VMIO_SYSFS_ROOT")) previous_ = old;
    setenv("VMIO_SYSFS_ROOT", root.c_str(), 1);
  }
  ~SysfsRoot() {
    if (previous_) {
      setenv("VMIO_SYSFS_ROOT", previous_->c_str(), 1);
    } else {
      unsetenv("VMIO_SYSFS_ROOT");
    }
  }
  SysfsRoot(const SysfsRoot&) = delete;
  SysfsRoot& operator=(const SysfsRoot&) = delete;

 private:
  std::optional<std::string> previous_;
};

}  // namespace vmio::test
