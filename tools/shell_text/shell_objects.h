#pragma once
// The shell's numbered objects and the commands that manage them (new, use, release), apart
// from how a host holds an object. Ref is the host's owning reference: empty when
// value-initialised, and resetting it drops the host's reference (the object's end runs then).
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "shell_syntax.h"

namespace vmio::cli {

template <class Ref>
class ShellObjects {
 public:
  // The current object; nullptr when there is none (none created yet, or released).
  Ref* Current() { return current_ == 0 || !objects_[current_ - 1] ? nullptr : &objects_[current_ - 1]; }

  // Runs new, use and release; false for any other command. create(progid) makes an object;
  // not_set() raises the host's error for a command on no object.
  template <class Create, class NotSet>
  bool Execute(std::string_view command, ShellArguments& args, Create&& create, NotSet&& not_set) {
    if (command == "new") {
      const std::string_view progid = args.Token();
      args.End();
      objects_.push_back(create(progid));
      current_ = objects_.size();
      return true;
    }
    if (command == "use") {
      // Any number handed out is accepted, also of a released object: the variable holds Nothing.
      const int32_t k = args.Int32();
      args.End();
      if (k < 1 || static_cast<size_t>(k) > objects_.size()) throw ShellSyntaxError();
      current_ = static_cast<size_t>(k);
      return true;
    }
    if (command == "release") {
      args.End();
      if (!Current()) not_set();
      objects_[current_ - 1] = Ref();
      current_ = 0;
      return true;
    }
    return false;
  }

 private:
  std::vector<Ref> objects_;  // object K at K - 1; released ones are empty
  size_t current_ = 0;        // 0: no current object
};

}  // namespace vmio::cli
