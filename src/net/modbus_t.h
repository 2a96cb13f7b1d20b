#pragma once
// ModbusT: the library's own Modbus/TCP client, private to the library. One TCP connection to
// one device; read coils (function 1) and write single coil (function 5) over a general
// request.
//
// Lifecycle: Connect opens (and on a second call replaces) the socket, gives up after 5 s
// (the system's own TCP connect time-out would be minutes), and restarts the transaction
// counter at 0; Disconnect closes it. A failed Connect leaves Connected as it was
// and a failed request changes no state: the next request goes out on the same connection.
// Every request is sent once and its reply awaited once, 5 seconds, with one read: a reply
// must arrive in one segment. Whatever is already waiting on the socket when a request goes
// out (the rest of an oversized or split reply, a late one) is discarded first, so one bad
// reply cannot answer the next request. The reply's transaction, protocol and unit identifiers and its
// function code are not checked.
//
// Each exchange is a task on an Io (the *On members), so one thread can run many clients'
// exchanges side by side; the blocking members run the same tasks to completion.
//
// Errors (exact texts): 46001 "Invalid hostname" / "Failed to create a socket" / "Failed to
// connect to device", 67 "Too many files" (no descriptor left for the socket), 46002 "Send failed" / "Receive failed",
// 46003 "Receive timed out", 46004 "Invalid reply received" (8 bytes or fewer, or the peer closed), 46005 "Modbus
// exception " + code + "occured" (no blank before "occured", deliberately).
#include <array>
#include <concepts>
#include <cstdint>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "core/exchange_result.h"
#include "core/trace.h"
#include "engine/io.h"
#include "net/socket.h"

namespace vmio {

// One request argument: a 16-bit integer (2 bytes, big-endian), a byte array (a count byte,
// then the bytes) or anything else (monostate), which is left out of the frame.
using ModbusArg = std::variant<std::monostate, int16_t, std::vector<uint8_t>>;

// One exchange's outcome as a value: the reply's data, or the client's error (its number and
// the text the raising calls raise with).
struct ModbusResult : ExchangeError {
  std::vector<uint8_t> data;
};

class ModbusT {
 public:
  ModbusT();
  ~ModbusT();
  ModbusT(const ModbusT&) = delete;
  ModbusT& operator=(const ModbusT&) = delete;

  // Connects to a dotted IPv4 address (never resolved). True on success; failures raise 46001.
  bool Connect(const std::string& HostName, uint16_t Port);
  // As Connect, the failure returned instead of raised.
  ModbusResult Open(const std::string& HostName, uint16_t Port);
  engine::Task<ModbusResult> OpenOn(engine::Io& io, std::string HostName, uint16_t Port);
  bool Connected() const { return connected_; }

  // The narrow call every exchange goes through: sends FunctionCode with the arguments and
  // returns the reply's data part (the bytes after the function code, as many as the reply's
  // length field says), or the client's error. Never raises the client's errors.
  ModbusResult Request(int32_t FunctionCode, std::span<const ModbusArg> Arguments = {});
  engine::Task<ModbusResult> RequestOn(engine::Io& io, int32_t FunctionCode, std::vector<ModbusArg> Arguments);
  // Request, raising its error.
  std::vector<uint8_t> SendRequest(int32_t FunctionCode, std::span<const ModbusArg> Arguments = {});
  template <class... Args>
  requires(sizeof...(Args) > 0 && (std::constructible_from<ModbusArg, Args> && ...)) ModbusResult
      Request(int32_t FunctionCode, Args&&... args) {
    const std::array<ModbusArg, sizeof...(Args)> list{ModbusArg(std::forward<Args>(args))...};
    return Request(FunctionCode, std::span<const ModbusArg>(list));
  }
  template <class... Args>
  requires(sizeof...(Args) > 0 && (std::constructible_from<ModbusArg, Args> &&
                                   ...)) std::vector<uint8_t> SendRequest(int32_t FunctionCode, Args&&... args) {
    const std::array<ModbusArg, sizeof...(Args)> list{ModbusArg(std::forward<Args>(args))...};
    return SendRequest(FunctionCode, std::span<const ModbusArg>(list));
  }

  // The coil status bytes of Count coils from Address: bit 0 of the first byte is Address
  // (9 when the reply has no byte count).
  ModbusResult ReadCoils(int16_t Address, int16_t Count);
  engine::Task<ModbusResult> ReadCoilsOn(engine::Io& io, int16_t Address, int16_t Count);
  std::vector<uint8_t> GetCoilData(int16_t Address, int16_t Count);
  // Writes 0xFF00 (on) or 0x0000 (off) to one coil.
  ModbusResult WriteCoil(int16_t Address, bool State);
  engine::Task<ModbusResult> WriteCoilOn(engine::Io& io, int16_t Address, bool State);
  void SetCoilState(int16_t Address, bool State);
  // Closes the connection; does nothing unless connected.
  void Disconnect();

  // Judges what one read of a reply gave: count as RecvTimeout returned it (at most the
  // buffer's size), reply the zero-filled buffer it read into. Returns the data part, or the
  // client's error for the reply (raised by ReplyData).
  static ModbusResult JudgeReply(std::span<const uint8_t> reply, int32_t count);
  static std::vector<uint8_t> ReplyData(std::span<const uint8_t> reply, int32_t count);

 private:
  std::vector<uint8_t> BuildRequest(int32_t FunctionCode, std::span<const ModbusArg> Arguments);
  // Drops what is already waiting on the socket, without waiting; bounded against a flood.
  void DiscardPending();
  // Progress texts go to the library's trace (built only when a host installed a handler).
  template <class... Parts>
  static void DebugLog(const Parts&... parts) {
    Trace("modbus: ", parts...);
  }

  SocketHandle Socket = kNoSocket;
  bool connected_ = false;
  bool busy_ = false;  // an exchange is under way: another one from inside it raises 5
  int16_t TransactionID = 0;
  std::array<uint8_t, 2048> reply_{};
};

}  // namespace vmio
