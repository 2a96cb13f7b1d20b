// Choices as in `vmio shell` (tools/vmio/shell.cpp), reached here through COM:
// - Malformed arguments answer 5 before the object is looked at; an object command with no
//   current object answers 91; a member the object does not have answers 438 (GetIDsOfNames
//   fails), which is what `vmio shell` answers for a command the object cannot take.
// - `new` answers 429 when the programmatic name is not registered or the class cannot be
//   created. `sleep` runs this thread's message loop, so the component's timers fire.
#include "com_shell.h"

#include <istream>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dispatch_call.h"
#include "escape_text.h"
#include "shell_objects.h"
#include "shell_syntax.h"
#include "variant_text.h"

namespace vmio::comshell {
namespace {

using cli::ShellArguments;
using cli::TypedValue;

[[noreturn]] void InvalidArgument() { throw cli::ShellSyntaxError(); }

VARIANT Int(int32_t n) {
  VARIANT v;
  VariantInit(&v);
  V_VT(&v) = VT_I4;
  V_I4(&v) = n;
  return v;
}

std::vector<VARIANT> Views(const std::vector<OwnedVariant>& values) {
  std::vector<VARIANT> views;
  for (const OwnedVariant& v : values) views.push_back(*v);
  return views;
}

std::string Result(const OwnedVariant& value) { return FormatTypedValue(*value); }

// Waits while dispatching this thread's messages (timer callbacks among them).
void PumpMessages(int32_t ms) {
  const ULONGLONG deadline = GetTickCount64() + static_cast<ULONGLONG>(ms);
  for (;;) {
    MSG msg;
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
      TranslateMessage(&msg);
      DispatchMessageW(&msg);
    }
    const ULONGLONG now = GetTickCount64();
    if (now >= deadline) return;
    MsgWaitForMultipleObjects(0, nullptr, FALSE, static_cast<DWORD>(deadline - now), QS_ALLINPUT);
  }
}

// The shell's reference to an object: released when dropped.
struct ReleaseObject {
  void operator()(IDispatch* object) const { object->Release(); }
};
using ObjectRef = std::unique_ptr<IDispatch, ReleaseObject>;

class Shell {
 public:
  std::string Execute(std::string_view command, ShellArguments args) {
    if (objects_.Execute(command, args, Create, [] { throw StandardError(91); })) return "ok";
    if (command == "connect") {
      const auto device = cli::UnescapeText(args.Rest());
      if (!device) InvalidArgument();
      const OwnedVariant text = ToVariant(std::move(*device));
      const VARIANT arg[] = {*text};
      return Ok(CallByName(Current(), "Connect", CallKind::kGet, arg));
    }
    if (command == "disconnect") {
      args.End();
      return Ok(CallByName(Current(), "Disconnect", CallKind::kGet, {}));
    }
    if (command == "ports") {
      args.End();
      return Result(CallByName(Current(), "Ports", CallKind::kGet, {}));
    }
    if (command == "direction" || command == "type" || command == "name" || command == "get") {
      const VARIANT index[] = {Int(args.Int32())};
      args.End();
      const std::string_view member = command == "direction" ? "PortDirection"
                                      : command == "type"    ? "PortType"
                                      : command == "name"    ? "PortName"
                                                             : "PortValue";
      return Result(CallByName(Current(), member, CallKind::kGet, index));
    }
    if (command == "set") {
      const VARIANT index = Int(args.Int32());
      const OwnedVariant value = ToVariant(args.OneValue());
      const VARIANT put[] = {index, *value};
      CallByName(Current(), "PortValue", CallKind::kPut, put);
      return "ok";
    }
    if (command == "call") {
      const std::string member(args.Token());
      std::vector<OwnedVariant> values;
      for (TypedValue& v : args.Values()) values.push_back(ToVariant(std::move(v)));
      const OwnedVariant result = CallByName(Current(), member, CallKind::kGet, Views(values));
      return V_VT(&*result) == VT_EMPTY ? "ok" : Result(result);
    }
    if (command == "item-id" || command == "item-name") {
      const OwnedVariant key = ToVariant(args.OneValue());
      const VARIANT item_args[] = {*key};
      const OwnedVariant record = CallByName(Current(), "Item", CallKind::kGet, item_args);
      if (V_VT(&*record) != VT_DISPATCH) throw StandardError(13);
      if (!V_DISPATCH(&*record)) throw StandardError(91);
      return Result(CallByName(V_DISPATCH(&*record), command == "item-id" ? "ID" : "Name", CallKind::kGet, {}));
    }
    if (command == "sleep") {
      const int32_t ms = args.Int32();
      args.End();
      if (ms < 0) InvalidArgument();
      PumpMessages(ms);
      return "ok";
    }
    InvalidArgument();
  }

 private:
  static ObjectRef Create(std::string_view progid) {
    CLSID clsid;
    IDispatch* object = nullptr;
    if (FAILED(CLSIDFromProgID(Utf16(progid).c_str(), &clsid)) ||
        FAILED(
            CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch, reinterpret_cast<void**>(&object)))) {
      throw StandardError(429);
    }
    return ObjectRef(object);
  }

  static std::string Ok(const OwnedVariant&) { return "ok"; }

  IDispatch* Current() {
    ObjectRef* object = objects_.Current();
    if (!object) throw StandardError(91);
    return object->get();
  }

  cli::ShellObjects<ObjectRef> objects_;
};

std::string ErrorLine(const HostError& e) {
  return "error " + std::to_string(e.number) + " " + cli::EscapeText(e.description);
}

}  // namespace

int RunShell(std::istream& in, std::ostream& out) {
  Shell shell;
  std::string line;
  while (std::getline(in, line)) {
    const std::optional<cli::ShellCommand> command = cli::ReadCommandLine(line);
    if (!command) continue;
    std::string result;
    try {
      result = shell.Execute(command->word, command->args);
    } catch (const HostError& e) {
      result = ErrorLine(e);
    } catch (const cli::ShellSyntaxError&) {
      result = ErrorLine(StandardError(5));
    } catch (const std::exception& e) {
      result = ErrorLine({5, e.what()});
    }
    out << result << '\n' << std::flush;
  }
  return 0;
}

}  // namespace vmio::comshell
