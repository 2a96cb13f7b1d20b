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
// - A command line longer than kMaxShellLine (1 MiB) answers error 5 like any malformed one;
//   it is read to its end without being held, so a script cannot make the shell fill memory.
// - An exception other than AutomationError answers "error 5 " + its text; anything else
//   thrown answers error 5 with its standard text. The shell keeps reading either way.
#include "shell.h"

#include <istream>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "shell_objects.h"
#include "shell_syntax.h"
#include "value_text.h"
#include "vmio/error.h"
#include "vmio/events.h"
#include "vmio/objects.h"

namespace vmio::cli {
namespace {

[[noreturn]] void InvalidArgument() { throw ShellSyntaxError(); }

class Shell {
 public:
  // The result line of one command.
  std::string Execute(std::string_view command, ShellArguments args) {
    if (objects_.Execute(command, args, CreateObject, [] { throw AutomationError(kObjectNotSet); })) return "ok";
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
      const Variant value = ToVariant(args.OneValue());
      Device().PortValue(index, value);
      return "ok";
    }
    if (command == "call") {
      const std::string member(args.Token());
      std::vector<Variant> values;
      for (TypedValue& v : args.Values()) values.push_back(ToVariant(std::move(v)));
      const Variant result = CurrentObject().Call(member, values);
      return result.IsEmpty() ? "ok" : FormatTypedValue(result);
    }
    if (command == "item-id" || command == "item-name") {
      const Variant key[] = {ToVariant(args.OneValue())};  // a 1-based position or a string key
      const Variant record = CurrentObject().Call("Item", key);
      return FormatTypedValue(record.AsObject()->Call(command == "item-id" ? "ID" : "Name"));
    }
    if (command == "sleep") {
      const int32_t ms = args.Int32();
      args.End();
      if (ms < 0) InvalidArgument();
      WaitRunningEvents(kNoWaitHandle, ms);
      return "ok";
    }
    InvalidArgument();
  }

 private:
  Object& CurrentObject() {
    std::shared_ptr<Object>* object = objects_.Current();
    if (!object) throw AutomationError(kObjectNotSet);
    return **object;
  }

  IODevice& Device() {
    auto* device = dynamic_cast<IODevice*>(&CurrentObject());
    if (!device) throw AutomationError(kMemberNotSupported);
    return *device;
  }

  // The last reference to each: a released object's end runs when it is dropped here.
  ShellObjects<std::shared_ptr<Object>> objects_;
};

std::string ErrorLine(int32_t number, std::string_view description) {
  return "error " + std::to_string(number) + " " + EscapeText(description);
}

}  // namespace

int RunShell(std::istream& in, std::ostream& out) {
  Shell shell;
  std::string line;
  for (LineRead read; (read = ReadShellLine(in, line)) != LineRead::kEnd;) {
    const std::optional<ShellCommand> command = ReadCommandLine(line);
    if (!command) continue;  // blank or a comment, however long
    std::string result;
    try {
      if (read == LineRead::kTooLong) throw ShellSyntaxError();
      result = shell.Execute(command->word, command->args);
    } catch (const AutomationError& e) {
      result = ErrorLine(e.Number(), e.Description());
    } catch (const ShellSyntaxError&) {
      result = ErrorLine(5, StandardErrorText(5));
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
