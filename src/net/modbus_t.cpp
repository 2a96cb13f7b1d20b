#include "net/modbus_t.h"

#include <algorithm>

#include "core/call_guard.h"
#include "core/errors.h"
#include "net/lists.h"

namespace vmio {
namespace {

// The client's own error numbers.
constexpr int32_t kConnectError = 46001;
constexpr int32_t kTransferError = 46002;
constexpr int32_t kTimedOut = 46003;
constexpr int32_t kInvalidReply = 46004;
constexpr int32_t kModbusException = 46005;
constexpr float kReplyWaitSeconds = 5.0f;
constexpr int32_t kConnectTimeoutMs = 5000;
// Reads of leftovers before a request, at most: a peer that floods cannot hold the call.
constexpr int kMaxDiscardReads = 64;

ModbusResult Failure(int32_t number, std::string text) {
  return ExchangeFailure<ModbusResult>(number, std::move(text));
}

// The data of a result, or its error raised.
std::vector<uint8_t> TakeData(ModbusResult result) {
  result.RaiseIfFailed();
  return std::move(result.data);
}

void PutBigEndian(std::vector<uint8_t>& frame, size_t at, uint16_t value) {
  frame[at] = static_cast<uint8_t>(value >> 8);
  frame[at + 1] = static_cast<uint8_t>(value);
}

}  // namespace

ModbusT::ModbusT() {
  DebugLog("Initialising WinSock 2.2");
  StartSockets();
  DebugLog("Initialized");
}

ModbusT::~ModbusT() {
  Disconnect();
  // A half-open socket (a failed Connect) goes with the socket library's end.
  if (Socket != kNoSocket) CloseSocket(Socket);
  StopSockets();
}

bool ModbusT::Connect(const std::string& HostName, uint16_t Port) {
  TakeData(Open(HostName, Port));
  return true;
}

ModbusResult ModbusT::Open(const std::string& HostName, uint16_t Port) {
  return engine::RunBlocking([&](engine::Io& io) { return OpenOn(io, HostName, Port); });
}

engine::Task<ModbusResult> ModbusT::OpenOn(engine::Io& io, std::string HostName, uint16_t Port) {
  const CallGuard exchange(busy_);
  DebugLog("Attempting to connect");
  DebugLog("Resolving address: ", HostName);
  if (HostName.empty() || HostName.find('\0') != std::string::npos) {  // a NUL would cut the name
    DebugLog("Invalid hostname");
    co_return Failure(kConnectError, "Invalid hostname");
  }
  DebugLog("Creating Modbus/T socket");
  if (Socket != kNoSocket) CloseSocket(Socket);
  Socket = OpenSocket(SocketKind::Tcp);
  if (Socket == kNoSocket) {
    const bool no_descriptor = NoDescriptorLeft();  // before the trace, which may change it
    DebugLog("Failed to create a socket");
    if (no_descriptor) co_return Failure(kTooManyFiles, StandardErrorText(kTooManyFiles));
    co_return Failure(kConnectError, "Failed to create a socket");
  }
  DebugLog("Connecting to ", HostName);
  if (!co_await ConnectIPv4On(io.loop(), Socket, HostName, Port, kConnectTimeoutMs)) {
    DebugLog("Failed to connect to device: ", LastSocketError());
    co_return Failure(kConnectError, "Failed to connect to device");
  }
  TransactionID = 0;
  DebugLog("All done");
  connected_ = true;
  co_return ModbusResult{};
}

std::vector<uint8_t> ModbusT::BuildRequest(int32_t FunctionCode, std::span<const ModbusArg> Arguments) {
  size_t size = 8;
  for (const ModbusArg& a : Arguments) {
    if (std::holds_alternative<int16_t>(a)) size += 2;
    if (const auto* bytes = std::get_if<std::vector<uint8_t>>(&a)) size += bytes->size() + 1;
  }
  std::vector<uint8_t> frame(size);
  PutBigEndian(frame, 0, static_cast<uint16_t>(TransactionID));
  // Identifiers run 0 .. 32767 and start again at 0: never negative on the wire.
  TransactionID = TransactionID >= 32767 ? 0 : static_cast<int16_t>(TransactionID + 1);
  frame[6] = 1;  // unit 1, always
  frame[7] = static_cast<uint8_t>(FunctionCode);
  size_t position = 8;
  for (const ModbusArg& a : Arguments) {
    if (const int16_t* word = std::get_if<int16_t>(&a)) {
      PutBigEndian(frame, position, static_cast<uint16_t>(*word));
      position += 2;
    } else if (const auto* bytes = std::get_if<std::vector<uint8_t>>(&a)) {
      frame[position] = static_cast<uint8_t>(bytes->size());
      std::copy(bytes->begin(), bytes->end(), frame.begin() + static_cast<ptrdiff_t>(position) + 1);
      position += bytes->size() + 1;
    }
  }
  PutBigEndian(frame, 4, static_cast<uint16_t>(position - 6));
  return frame;
}

ModbusResult ModbusT::Request(int32_t FunctionCode, std::span<const ModbusArg> Arguments) {
  std::vector<ModbusArg> arguments(Arguments.begin(), Arguments.end());
  return engine::RunBlocking([&](engine::Io& io) { return RequestOn(io, FunctionCode, std::move(arguments)); });
}

engine::Task<ModbusResult> ModbusT::RequestOn(engine::Io& io, int32_t FunctionCode, std::vector<ModbusArg> Arguments) {
  const CallGuard exchange(busy_);
  DebugLog("Sending command ", FunctionCode);
  const std::vector<uint8_t> frame = BuildRequest(FunctionCode, Arguments);
  DiscardPending();
  if (SendBytes(Socket, frame) == -1) {
    DebugLog("Control connection disconnected");
    co_return Failure(kTransferError, "Send failed");
  }
  DebugLog("Reading reply");
  reply_.fill(0);
  const int32_t count = co_await RecvTimeoutOn(io.loop(), Socket, reply_.data(), static_cast<int32_t>(reply_.size()), 0,
                                               kReplyWaitSeconds);
  co_return JudgeReply(reply_, count);
}

std::vector<uint8_t> ModbusT::SendRequest(int32_t FunctionCode, std::span<const ModbusArg> Arguments) {
  return TakeData(Request(FunctionCode, Arguments));
}

ModbusResult ModbusT::JudgeReply(std::span<const uint8_t> reply, int32_t count) {
  if (count == -1) {
    DebugLog("Control connection disconnected");
    return Failure(kTransferError, "Receive failed");
  }
  if (count == -2) {
    DebugLog("Control connection disconnected");
    return Failure(kTimedOut, "Receive timed out");
  }
  if (count <= 8) {
    DebugLog("Not enough data recieved");
    return Failure(kInvalidReply, "Invalid reply received");
  }
  if (reply[7] >= 128) {
    const int code = reply[8];
    DebugLog("Modbus exception ", code);
    return Failure(kModbusException, "Modbus exception " + std::to_string(code) + "occured");
  }
  const int32_t length = reply[4] << 8 | reply[5];
  ModbusResult result;
  result.data = SubArray(reply, 8, length - 2);
  return result;
}

std::vector<uint8_t> ModbusT::ReplyData(std::span<const uint8_t> reply, int32_t count) {
  return TakeData(JudgeReply(reply, count));
}

void ModbusT::DiscardPending() {
  for (int i = 0; i < kMaxDiscardReads; ++i) {
    if (ReceiveBytes(Socket, reply_.data(), static_cast<int32_t>(reply_.size()), 0) <= 0) return;
  }
}

ModbusResult ModbusT::ReadCoils(int16_t Address, int16_t Count) {
  return engine::RunBlocking([&](engine::Io& io) { return ReadCoilsOn(io, Address, Count); });
}

engine::Task<ModbusResult> ModbusT::ReadCoilsOn(engine::Io& io, int16_t Address, int16_t Count) {
  // Named: g++ 12 cannot keep a braced list inside a co_await expression.
  std::vector<ModbusArg> arguments{Address, Count};
  ModbusResult result = co_await RequestOn(io, 1, std::move(arguments));
  if (!result.Ok()) co_return result;
  if (result.data.empty()) co_return Failure(kSubscriptOutOfRange, StandardErrorText(kSubscriptOutOfRange));
  result.data = SubArray(result.data, 1, result.data[0]);
  co_return result;
}

std::vector<uint8_t> ModbusT::GetCoilData(int16_t Address, int16_t Count) {
  return TakeData(ReadCoils(Address, Count));
}

ModbusResult ModbusT::WriteCoil(int16_t Address, bool State) {
  return engine::RunBlocking([&](engine::Io& io) { return WriteCoilOn(io, Address, State); });
}

engine::Task<ModbusResult> ModbusT::WriteCoilOn(engine::Io& io, int16_t Address, bool State) {
  return RequestOn(io, 5, {Address, static_cast<int16_t>(State ? -256 : 0)});  // 0xFF00 or 0x0000
}

void ModbusT::SetCoilState(int16_t Address, bool State) { TakeData(WriteCoil(Address, State)); }

void ModbusT::Disconnect() {
  if (!connected_) return;
  DebugLog("Closing handles and shutting down");
  connected_ = false;
  if (Socket != kNoSocket) {
    CloseSocket(Socket);
    Socket = kNoSocket;
  }
  DebugLog("All closed");
}

}  // namespace vmio
