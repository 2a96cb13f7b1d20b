// The serial line on the Win32 comm API: port N is \\.\COMN; a name given by path is opened as
// it stands. The file is overlapped so that nothing waits inside a call: a read takes only the
// bytes the input queue holds, a write is given a bounded time, and input is waited for by the
// pumping wait on the event of a pending WaitCommEvent(EV_RXCHAR). Where the line cannot report
// its events (Wine ends every such wait at once on a pseudo-terminal), the wait looks at the
// input queue every few milliseconds instead.
#include <windows.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <string>

#include "core/errors.h"
#include "platform/windows/core/unique_handle.h"
#include "serial/serial_line.h"

namespace vmio {
namespace {

constexpr DWORD kQueueBytes = 4096;
// At 9600 baud a byte takes about 1 ms: twice that per byte, plus slack, is all a write gets.
constexpr DWORD kWriteSlackMs = 200;
constexpr DWORD kWriteMsPerByte = 2;
// A read of queued bytes returns at once; this only bounds a driver that holds it.
constexpr DWORD kReadBoundMs = 100;
// How often a line that cannot report its events is looked at while waiting.
constexpr LONG kPollMs = 5;

// 9600 baud, 8 data bits, no parity, 1 stop bit, bytes passed as they are, no flow control of
// any kind. DTR and RTS are raised as plain signals, as opening a terminal does elsewhere.
bool ApplyLineSettings(HANDLE file) {
  DCB dcb{};
  dcb.DCBlength = sizeof dcb;
  if (!GetCommState(file, &dcb)) return false;
  dcb.BaudRate = CBR_9600;
  dcb.ByteSize = 8;
  dcb.Parity = NOPARITY;
  dcb.StopBits = ONESTOPBIT;
  dcb.fBinary = TRUE;
  dcb.fParity = FALSE;
  dcb.fOutxCtsFlow = FALSE;
  dcb.fOutxDsrFlow = FALSE;
  dcb.fDtrControl = DTR_CONTROL_ENABLE;
  dcb.fRtsControl = RTS_CONTROL_ENABLE;
  dcb.fDsrSensitivity = FALSE;
  dcb.fOutX = FALSE;
  dcb.fInX = FALSE;
  dcb.fErrorChar = FALSE;
  dcb.fNull = FALSE;  // NUL bytes reach the driver, which drops them itself
  dcb.fAbortOnError = FALSE;
  if (!SetCommState(file, &dcb)) return false;
  // Reads take what has arrived and return; writes end after their per-byte allowance.
  COMMTIMEOUTS timeouts{};
  timeouts.ReadIntervalTimeout = MAXDWORD;
  timeouts.WriteTotalTimeoutMultiplier = kWriteMsPerByte;
  timeouts.WriteTotalTimeoutConstant = kWriteSlackMs;
  return SetCommTimeouts(file, &timeouts) != 0;
}

// Ends an overlapped operation that returned pending: waits up to ms for it, else cancels it.
// Either way the operation is over on return (its buffer may go). The bytes it moved, or
// nothing when it failed.
std::optional<DWORD> Finish(HANDLE file, OVERLAPPED& ov, DWORD ms) {
  if (WaitForSingleObject(ov.hEvent, ms) != WAIT_OBJECT_0) CancelIoEx(file, &ov);
  DWORD moved = 0;
  if (!GetOverlappedResult(file, &ov, &moved, TRUE)) return std::nullopt;
  return moved;
}

class CommSerialLine final : public SerialLine {
 public:
  ~CommSerialLine() override { Close(); }

  void SetInputLen(int32_t bytes) override { input_len_ = bytes; }

  bool SetCommPort(int16_t number) override {
    if (number < 1 || PortOpen()) return false;
    name_ = "\\\\.\\COM" + std::to_string(number);
    return true;
  }

  void SetCommPath(std::string path) override { name_ = std::move(path); }

  bool SetPortOpen(bool open) override {
    if (!open) {
      Close();
      return true;
    }
    if (PortOpen() || name_.empty() || !io_event_ || !rx_event_ || !arrived_ || !poll_timer_) {
      return false;
    }
    // Not shared: a COM port has one user at a time.
    const HANDLE file = CreateFileA(name_.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_OVERLAPPED, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    SetHandleInformation(file, HANDLE_FLAG_INHERIT, 0);
    if (!SetupComm(file, kQueueBytes, kQueueBytes) || !ApplyLineSettings(file) || !SetCommMask(file, EV_RXCHAR)) {
      CloseHandle(file);
      return false;
    }
    file_ = file;
    hung_up_ = false;
    return true;
  }

  bool PortOpen() const override { return file_ != INVALID_HANDLE_VALUE; }
  bool WatchableByLoop() const override { return false; }  // an event handle, not a socket

  void Output(std::span<const uint8_t> bytes) override {
    if (!PortOpen() || bytes.empty()) return;
    const DWORD count = static_cast<DWORD>(std::min<size_t>(bytes.size(), kQueueBytes));
    OVERLAPPED ov{};
    ov.hEvent = io_event_.Get();
    if (!WriteFile(file_, bytes.data(), count, nullptr, &ov) && GetLastError() != ERROR_IO_PENDING) return;
    // What the line has not taken in its time is dropped; the missing reply shows it.
    Finish(file_, ov, kWriteSlackMs + kWriteMsPerByte * count);
  }

  std::string Input() override {
    if (!PortOpen()) Raise(kSerialPortNotOpen, kSerialPortNotOpenText);
    const size_t limit = input_len_ > 0 ? static_cast<size_t>(input_len_) : std::numeric_limits<size_t>::max();
    std::string got;
    // Only what is queued is asked for: a read of more may stay pending (Wine's does).
    for (DWORD queued; got.size() < limit && (queued = Queued()) > 0;) {
      char buf[256];
      OVERLAPPED ov{};
      ov.hEvent = io_event_.Get();
      const DWORD want = static_cast<DWORD>(std::min({sizeof buf, limit - got.size(), size_t{queued}}));
      DWORD n = 0;
      if (!ReadFile(file_, buf, want, &n, &ov)) {
        if (GetLastError() != ERROR_IO_PENDING) break;
        n = Finish(file_, ov, kReadBoundMs).value_or(0);
      }
      if (n == 0) break;
      got.append(buf, n);
    }
    return got;
  }

  WaitHandle ReadyHandle() const override {
    if (!PortOpen() || hung_up_) return kNoWaitHandle;
    if (!polling_ && !ArmWait()) {
      // The line reports no events: its queue is looked at on a timer.
      LARGE_INTEGER first{};
      first.QuadPart = -10'000LL * kPollMs;  // relative, in 100 ns units
      if (!SetWaitableTimer(poll_timer_.Get(), &first, kPollMs, nullptr, nullptr, FALSE)) return kNoWaitHandle;
      polling_ = true;
    }
    // A wait armed after bytes arrived would miss them: they make the line ready now.
    if (Queued() > 0) return reinterpret_cast<WaitHandle>(arrived_.Get());
    if (hung_up_) return kNoWaitHandle;
    return reinterpret_cast<WaitHandle>(polling_ ? poll_timer_.Get() : rx_event_.Get());
  }

 private:
  // Bytes in the input queue; none, and the line taken for gone, when it cannot be asked.
  DWORD Queued() const {
    COMSTAT status{};
    DWORD errors = 0;
    if (ClearCommError(file_, &errors, &status)) return status.cbInQue;
    hung_up_ = true;
    return 0;
  }

  // Keeps one WaitCommEvent pending: a finished one is collected and the next one started.
  // False when the line ends a wait without reporting input: it cannot be waited on.
  bool ArmWait() const {
    if (waiting_) {
      if (!HasOverlappedIoCompleted(&wait_ov_)) return true;
      waiting_ = false;
      DWORD unused = 0;
      if (!GetOverlappedResult(file_, &wait_ov_, &unused, FALSE) || !(wait_mask_ & EV_RXCHAR)) return false;
    }
    wait_ov_ = OVERLAPPED{};
    wait_ov_.hEvent = rx_event_.Get();
    ResetEvent(rx_event_.Get());
    wait_mask_ = 0;
    if (WaitCommEvent(file_, &wait_mask_, &wait_ov_)) {
      SetEvent(rx_event_.Get());  // an event was there already
      return (wait_mask_ & EV_RXCHAR) != 0;
    }
    waiting_ = GetLastError() == ERROR_IO_PENDING;
    return waiting_;
  }

  void Close() {
    if (!PortOpen()) return;
    if (waiting_) {
      SetCommMask(file_, 0);  // ends the pending wait
      Finish(file_, wait_ov_, 0);
      waiting_ = false;
    }
    if (polling_) CancelWaitableTimer(poll_timer_.Get());
    polling_ = false;
    CloseHandle(file_);
    file_ = INVALID_HANDLE_VALUE;
  }

  HANDLE file_ = INVALID_HANDLE_VALUE;
  int32_t input_len_ = 0;
  std::string name_ = "\\\\.\\COM1";                                    // port 1 until told otherwise
  UniqueHandle io_event_{CreateEventA(nullptr, TRUE, FALSE, nullptr)};  // reads and writes, one at a time
  UniqueHandle rx_event_{CreateEventA(nullptr, TRUE, FALSE, nullptr)};  // the pending WaitCommEvent's
  UniqueHandle arrived_{CreateEventA(nullptr, TRUE, TRUE, nullptr)};    // always set: for queued bytes
  UniqueHandle poll_timer_{CreateWaitableTimerA(nullptr, FALSE, nullptr)};
  // What the const ReadyHandle keeps up: the pending WaitCommEvent, or the polling.
  mutable bool hung_up_ = false;
  mutable bool polling_ = false;
  mutable OVERLAPPED wait_ov_{};
  mutable DWORD wait_mask_ = 0;
  mutable bool waiting_ = false;
};

}  // namespace

std::unique_ptr<SerialLine> CreateSerialLine() { return std::make_unique<CommSerialLine>(); }

}  // namespace vmio
