#include "devices/rs232/rs232.h"

#include <algorithm>

#include "core/common.h"
#include "core/errors.h"
#include "core/numeric.h"
#include "core/string_encoding.h"
#include "core/text_match.h"
#include "devices/rs232/line_assembly.h"
#include "vmio/events.h"

namespace vmio {
namespace {

constexpr int32_t kReplyTimeout = 5001;  // ms
// The longest idle wait between reads of a reply, so timers still run close to their beat.
constexpr int32_t kWaitSlice = 10;  // ms

std::string_view TerminatorOf(std::string_view command) {
  if (command.ends_with("\r\n")) return "\r\n";
  if (command.ends_with('\r')) return "\r";
  if (command.ends_with('\n')) return "\n";
  return {};
}

// Bytes taken by the first count characters of UTF-8 text (all of it when shorter).
size_t CharactersToBytes(std::string_view text, size_t count) {
  size_t pos = 0;
  for (; pos < text.size() && count > 0; --count) {
    ++pos;
    while (pos < text.size() && (static_cast<uint8_t>(text[pos]) & 0xC0) == 0x80) ++pos;
  }
  return pos;
}

void RequireArgumentCount(std::span<const Variant> args, size_t count) {
  if (args.size() != count) Raise(450);
}

}  // namespace

int32_t RS232::AddCommand(const std::string& Command) {
  commands_.push_back(Command);
  return static_cast<int32_t>(commands_.size() - 1);
}

std::string RS232::GetCommand(int32_t Index) const {
  CheckIndex(Index);
  return commands_[static_cast<size_t>(Index)];
}

void RS232::Connect(const std::string& Device) {
  const bool by_path = Device.starts_with('/');
  const int16_t port = by_path ? 0 : RoundToInt16(Val(Device));
  // The new line replaces (and so closes) the old one, and stays even when it fails to open.
  line_ = CreateSerialLine();
  line_->SetInputLen(1);
  bool chosen = true;
  if (by_path) {
    line_->SetCommPath(Device);
  } else {
    chosen = line_->SetCommPort(port);
  }
  if (!chosen || !line_->SetPortOpen(true)) {
    RaiseConnectionFailed("Error opening COM port " + (by_path ? Device : std::to_string(port)));
  }
}

void RS232::Disconnect() {
  if (!line_) return;
  if (line_->PortOpen()) line_->SetPortOpen(false);
  line_.reset();
}

int32_t RS232::Ports() { return static_cast<int32_t>(commands_.size()); }

int32_t RS232::PortDirection(int32_t Index) {
  CheckIndex(Index);
  return IOInput;
}

int32_t RS232::PortType(int32_t Index) {
  CheckIndex(Index);
  return vtString;
}

std::string RS232::PortName(int32_t Index) {
  CheckIndex(Index);
  return "Sensor " + std::to_string(Index + 1);
}

Variant RS232::PortValue(int32_t Index) {
  CheckIndex(Index);
  // A copy: events run during the reply wait may add commands.
  const std::string command = commands_[static_cast<size_t>(Index)];
  const std::string_view terminator = TerminatorOf(command);
  if (command.size() == terminator.size()) return Listen(terminator);
  return Ask(command);
}

void RS232::PortValue(int32_t Index, const Variant&) {
  CheckIndex(Index);
  RaiseNotAnOutput(Index);
}

Variant RS232::Call(std::string_view member, std::span<const Variant> args) {
  if (EqualsNoCase(member, "AddCommand")) {
    RequireArgumentCount(args, 1);
    return AddCommand(args[0].AsString());
  }
  if (EqualsNoCase(member, "GetCommand")) {
    RequireArgumentCount(args, 1);
    return GetCommand(args[0].AsInt32());
  }
  return IODevice::Call(member, args);
}

void RS232::CheckIndex(int32_t Index) const {
  if (Index < 0 || static_cast<size_t>(Index) >= commands_.size()) Raise(9);
}

SerialLine& RS232::Line() {
  if (!line_) Raise(91);
  return *line_;
}

std::string RS232::ReadText() {
  const std::string bytes = Line().Input();
  return BytesToString({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()}, kCodePage1252);
}

void RS232::ClearInput() {
  while (!Line().Input().empty()) {
  }
}

std::string RS232::Listen(std::string_view terminator) {
  for (std::string got; !(got = ReadText()).empty();) listen_buffer_ += got;
  if (terminator.empty()) {
    last_line_ = std::move(listen_buffer_);
    listen_buffer_.clear();
  } else if (std::optional<std::string> line = TakeLastLine(listen_buffer_, terminator)) {
    // The last complete line wins; an unfinished one stays buffered.
    last_line_ = std::move(*line);
  }
  if (last_line_.starts_with("*B")) last_line_.erase(0, CharactersToBytes(last_line_, 5));
  return last_line_;
}

std::string RS232::Ask(const std::string& command) {
  try {
    ClearInput();
    Line().Output(StringToBytes(command, kCodePage1252));
  } catch (const AutomationError&) {
    // Not reported: a missing or closed line fails in the wait below, a dead one times out.
  }
  const int32_t start = TickCount();
  std::string reply;
  for (bool ended = false; !ended;) {
    const std::string got = ReadText();
    if (got.empty()) {
      WaitForReply(start);
    } else {
      ended = got.find_first_of("\r\n") != std::string::npos;
      reply += got;
    }
    RunPendingEvents();
    if (TickDiff(start) >= kReplyTimeout) Raise(IOErrorGettingValue, "Timed out receiving data");
  }
  // Reads are one character each, so the reply ends at its first CR or LF: drop that.
  reply.pop_back();
  std::erase(reply, '\0');
  return reply;
}

void RS232::WaitForReply(int32_t start) {
  int32_t slice = std::min(kWaitSlice, kReplyTimeout - TickDiff(start));
  const int32_t next_event = MillisecondsUntilNextEvent();
  if (next_event >= 0) slice = std::min(slice, next_event);
  Line().WaitForInput(slice);
}

}  // namespace vmio
