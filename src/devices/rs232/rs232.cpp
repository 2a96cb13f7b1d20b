#include "devices/rs232/rs232.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "core/call_guard.h"
#include "core/errors.h"
#include "core/numeric.h"
#include "core/pumping_wait.h"
#include "core/string_encoding.h"
#include "devices/rs232/line_assembly.h"
#include "vmio/events.h"

namespace vmio {
namespace {

constexpr auto kReplyTimeout = std::chrono::milliseconds(5001);
// The most of one line kept, the newest bytes: an instrument's line is a few dozen
// characters, and a device that never ends its line must not fill memory.
constexpr size_t kMaxLineBytes = 64 * 1024;

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

// Cuts text to its newest kMaxLineBytes, at a character boundary of the UTF-8 text.
void KeepNewest(std::string& text) {
  if (text.size() <= kMaxLineBytes) return;
  size_t cut = text.size() - kMaxLineBytes;
  while (cut < text.size() && (static_cast<uint8_t>(text[cut]) & 0xC0) == 0x80) ++cut;
  text.erase(0, cut);
}

constexpr Member kRS232Members[] = {
    MemberOf<&RS232::AddCommand>("AddCommand", MemberKind::kMethod, 101),
    MemberOf<&RS232::GetCommand>("GetCommand", MemberKind::kMethod, 102),
};

}  // namespace

const MemberTable RS232::kMembers{kRS232Members, &IODevice::kMembers};

int32_t RS232::AddCommand(const std::string& Command) {
  commands_.push_back(Command);
  PortCount = static_cast<int32_t>(commands_.size());
  PortTable.push_back(Port{IOInput, vtString, "Sensor " + std::to_string(PortCount), Variant(std::string())});
  return PortCount - 1;
}

std::string RS232::GetCommand(int32_t Index) const {
  if (Index < 0 || static_cast<size_t>(Index) >= commands_.size()) Raise(kSubscriptOutOfRange);
  return commands_[static_cast<size_t>(Index)];
}

engine::Task<void> RS232::BuildPortTable() {
  const std::string& device = Host;
  const bool by_path = device.starts_with('/');
  const int16_t port = by_path ? 0 : RoundToInt16(Val(device));
  // The new line replaces (and so closes) the old one, and stays even when it fails to open.
  line_ = CreateSerialLine();
  line_->SetInputLen(1);
  bool chosen = device.find('\0') == std::string::npos;  // a NUL would cut the name: refused
  if (by_path) {
    line_->SetCommPath(device);
  } else {
    chosen = chosen && line_->SetCommPort(port);
  }
  if (!chosen || !line_->SetPortOpen(true)) {
    RaiseConnectionFailed("Error opening COM port " + (by_path ? device : std::to_string(port)));
  }
  co_return;
}

void RS232::Disconnect() {
  PortTableDevice::Disconnect();
  if (!line_) return;
  if (line_->PortOpen()) line_->SetPortOpen(false);
  line_.reset();
}

engine::Task<void> RS232::ReadGroup(int32_t Index) {
  const CallGuard reading(reading_);  // timers run in the reply wait; one may read this device
  // A copy: events run during the reply wait may add commands.
  const std::string command = commands_[static_cast<size_t>(Index)];
  const std::string_view terminator = TerminatorOf(command);
  if (command.size() == terminator.size()) {
    SetValue(Index, Listen(terminator));
  } else {
    SetValue(Index, co_await Ask(command));
  }
}

Variant RS232::PortValue(int32_t Index) {
  const bool outer = std::exchange(pumping_, true);
  try {
    Variant value = PortTableDevice::PortValue(Index);
    pumping_ = outer;
    return value;
  } catch (...) {
    pumping_ = outer;
    throw;
  }
}

engine::Task<void> RS232::WritePort(int32_t Index, Variant) {
  // Every port is an input: 9 outside the list, else 45004.
  BeginWrite(Index);
  co_return;
}

SerialLine& RS232::Line() {
  if (!line_) Raise(kObjectNotSet);
  return *line_;
}

std::string RS232::ReadText() {
  const std::string bytes = Line().Input();
  return BytesToString({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()}, kCodePage1252);
}

void RS232::ClearInput(WaitClock::time_point deadline) {
  while (WaitClock::now() < deadline && !Line().Input().empty()) {
  }
}

std::string RS232::Listen(std::string_view terminator) {
  // Reads what has arrived; a device that never stops sending is read for the reply time-out.
  const auto deadline = WaitClock::now() + kReplyTimeout;
  for (std::string got; WaitClock::now() < deadline && !(got = ReadText()).empty();) {
    listen_buffer_ += got;
    KeepNewest(listen_buffer_);
  }
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

engine::Task<std::string> RS232::Ask(std::string command) {
  // Draining what a device keeps sending counts against the reply time-out too.
  const auto deadline = WaitClock::now() + kReplyTimeout;
  try {
    ClearInput(deadline);
    Line().Output(StringToBytes(command, kCodePage1252));
  } catch (const AutomationError&) {
    // Not reported: a missing or closed line fails in the wait below, a dead one times out.
  }
  std::string reply;
  for (bool ended = false; !ended;) {
    const std::string got = ReadText();
    if (got.empty()) {
      co_await WaitForInput(deadline);
    } else {
      ended = got.find_first_of("\r\n") != std::string::npos;
      reply += got;
      KeepNewest(reply);
      if (pumping_) RunPendingEvents();
    }
    if (WaitClock::now() >= deadline) Raise(IOErrorGettingValue, "Timed out receiving data");
  }
  // Reads are one character each, so the reply ends at its first CR or LF: drop that.
  reply.pop_back();
  std::erase(reply, '\0');
  co_return reply;
}

// The reply wait, run two ways. A host's blocking PortValue waits as it always has: the
// pumping wait, which runs the thread's due timers meanwhile and sleeps through the installed
// clock. On an engine's loop the exchange suspends instead until the line's descriptor is
// readable (or, on a closed or hung-up line, until the time is up) or the same deadline
// passes, while the loop serves every other device and timer; where the loop cannot watch
// the line, it waits as a blocking call does.
engine::Task<void> RS232::WaitForInput(WaitClock::time_point deadline) {
  SerialLine& line = Line();
  if (pumping_ || !line.WatchableByLoop()) {
    PumpingWait(line.ReadyHandle(), deadline);
    co_return;
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - WaitClock::now()).count();
  engine::Loop& loop = CurrentIo().loop();
  const WaitHandle handle = line.ReadyHandle();
  if (handle == kNoWaitHandle) {
    co_await engine::Sleep(loop, left);
  } else {
    co_await engine::Ready(loop, static_cast<int>(handle), engine::kReadable, engine::NowMs() + left);
  }
}

}  // namespace vmio
