#pragma once
// A simulator the library finds through an environment variable (VMIO_SYSFS_ROOT, VMIO_AX200),
// shown to this process only while the simulator runs: the variable's old value comes back
// when it ends.
#include <cstdlib>
#include <optional>
#include <string>

namespace vmio::sim {

class ScopedEnvironment {
 public:
  ScopedEnvironment(const char* name, const std::string& value) : name_(name) {
    if (const char* old = std::getenv(name)) previous_ = old;
    setenv(name, value.c_str(), 1);
  }
  ~ScopedEnvironment() {
    if (previous_) {
      setenv(name_, previous_->c_str(), 1);
    } else {
      unsetenv(name_);
    }
  }
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  const char* name_;
  std::optional<std::string> previous_;
};

}  // namespace vmio::sim
