// Choices where the protocol leaves room:
// - An error line is "error " + number + " " + description: the blank after the number is
//   written even when the description is empty ("error 45002 "), so a reader can always split
//   at the second blank. The description is escaped like any result, to stay on one line.
// - Malformed arguments are reported before the object is looked at, as a host evaluates a
//   call's arguments before making it. Then an object command with no current object (none
//   created yet, or released) answers 91 "Object variable or With block variable not set", as
//   a host's variable set to Nothing does; a device command on an object that is not an
//   IODevice, or item-id/item-name on one that is not an enumerator, answers 438 "Object
//   doesn't support this property or method". `call` and item-id/item-name reach members
//   through the object's member table, as a late-binding host does.
// - `use K` accepts any number the shell has handed out, also of a released object (the
//   variable still exists, it holds Nothing); other numbers answer 5.
// - An exception other than AutomationError answers "error 5 " + its text; anything else
//   thrown answers error 5 with its standard text. The shell keeps reading either way.
// - A carriage return ending a line is dropped, so scripts written with CR LF work.
#include "shell.h"

#include <chrono>
#include <istream>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/pumping_wait.h"
#include "value_text.h"
#include "vmio/error.h"
#include "vmio/objects.h"

namespace vmio::cli {
namespace {

constexpr std::string_view kBlanks = " \t";

[[noreturn]] void InvalidArgument() { throw AutomationError(5); }

std::string_view TrimLeft(std::string_view text) {
  const size_t start = text.find_first_not_of(kBlanks);
  return start == std::string_view::npos ? std::string_view() : text.substr(start);
}

// The arguments after the command word, consumed from the left.
class Arguments {
 public:
  explicit Arguments(std::string_view rest) : rest_(rest) {}

  // Everything left, as it stands (trailing blanks included).
  std::string_view Rest() const { return rest_; }

  std::string_view Token() {
    const size_t end = rest_.find_first_of(kBlanks);
    const std::string_view token = rest_.substr(0, end);
    rest_ = end == std::string_view::npos ? std::string_view() : TrimLeft(rest_.substr(end));
    if (token.empty()) InvalidArgument();
    return token;
  }

  int32_t Int32() {
    const auto value = ParseInt32(Token());
    if (!value) InvalidArgument();
    return *value;
  }

  // Typed values up to the end of the line; a "str:" value runs to the end of the line.
  std::vector<Variant> Values() {
    std::vector<Variant> values;
    while (!rest_.empty()) {
      const std::string_view text = rest_.starts_with("str:") ? std::exchange(rest_, {}) : Token();
      auto value = ParseTypedValue(text);
      if (!value) InvalidArgument();
      values.push_back(std::move(*value));
    }
    return values;
  }

  Variant OneValue() {
    auto values = Values();
    if (values.size() != 1) InvalidArgument();
    return std::move(values[0]);
  }

  void End() const {
    if (!TrimLeft(rest_).empty()) InvalidArgument();
  }

 private:
  std::string_view rest_;
};

class Shell {
 public:
  // The result line of one command.
  std::string Execute(std::string_view command, Arguments args) {
    if (command == "new") {
      const std::string_view progid = args.Token();
      args.End();
      objects_.push_back(CreateObject(progid));
      current_ = objects_.size();
      return "ok";
    }
    if (command == "use") {
      const int32_t k = args.Int32();
      args.End();
      if (k < 1 || static_cast<size_t>(k) > objects_.size()) InvalidArgument();
      current_ = static_cast<size_t>(k);
      return "ok";
    }
    if (command == "release") {
      args.End();
      CurrentObject();
      objects_[current_ - 1].reset();  // the last reference: the object's end runs here
      current_ = 0;
      return "ok";
    }
    if (command == "connect") {
      const auto device = UnescapeText(args.Rest());
      if (!device) InvalidArgument();
      Device().Connect(*device);
      return "ok";
    }
    if (command == "disconnect") {
      args.End();
      Device().Disconnect();
      return "ok";
    }
    if (command == "ports") {
      args.End();
      return FormatTypedValue(Device().Ports());
    }
    if (command == "direction" || command == "type" || command == "name" || command == "get") {
      const int32_t index = args.Int32();
      args.End();
      IODevice& device = Device();
      if (command == "direction") return FormatTypedValue(device.PortDirection(index));
      if (command == "type") return FormatTypedValue(device.PortType(index));
      if (command == "name") return FormatTypedValue(device.PortName(index));
      return FormatTypedValue(device.PortValue(index));
    }
    if (command == "set") {
      const int32_t index = args.Int32();
      const Variant value = args.OneValue();
      Device().PortValue(index, value);
      return "ok";
    }
    if (command == "call") {
      const std::string member(args.Token());
      const std::vector<Variant> values = args.Values();
      const Variant result = CurrentObject().Call(member, values);
      return result.IsEmpty() ? "ok" : FormatTypedValue(result);
    }
    if (command == "item-id" || command == "item-name") {
      const Variant key[] = {args.OneValue()};  // a 1-based position or a string key
      const Variant record = CurrentObject().Call("Item", key);
      return FormatTypedValue(record.AsObject()->Call(command == "item-id" ? "ID" : "Name"));
    }
    if (command == "sleep") {
      const int32_t ms = args.Int32();
      args.End();
      if (ms < 0) InvalidArgument();
      PumpingWait(kNoWaitHandle, WaitClock::now() + std::chrono::milliseconds(ms));
      return "ok";
    }
    InvalidArgument();
  }

 private:
  Object& CurrentObject() {
    if (current_ == 0 || !objects_[current_ - 1]) throw AutomationError(91);
    return *objects_[current_ - 1];
  }

  IODevice& Device() {
    auto* device = dynamic_cast<IODevice*>(&CurrentObject());
    if (!device) throw AutomationError(438);
    return *device;
  }

  std::vector<std::shared_ptr<Object>> objects_;  // object K at K - 1; released ones are null
  size_t current_ = 0;                            // 0: no current object
};

std::string ErrorLine(int32_t number, std::string_view description) {
  return "error " + std::to_string(number) + " " + EscapeText(description);
}

}  // namespace

int RunShell(std::istream& in, std::ostream& out) {
  Shell shell;
  std::string line;
  while (std::getline(in, line)) {
    std::string_view text(line);
    if (text.ends_with('\r')) text.remove_suffix(1);
    text = TrimLeft(text);
    if (text.empty() || text.front() == '#') continue;
    const size_t end = text.find_first_of(kBlanks);
    const std::string_view command = text.substr(0, end);
    const Arguments args(end == std::string_view::npos ? std::string_view() : TrimLeft(text.substr(end)));
    std::string result;
    try {
      result = shell.Execute(command, args);
    } catch (const AutomationError& e) {
      result = ErrorLine(e.Number(), e.Description());
    } catch (const std::exception& e) {
      result = ErrorLine(5, e.what());
    } catch (...) {
      result = ErrorLine(5, StandardErrorText(5));
    }
    out << result << '\n' << std::flush;
  }
  return 0;
}

}  // namespace vmio::cli
