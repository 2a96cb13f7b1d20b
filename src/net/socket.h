#pragma once
// The socket layer: the socket calls the Modbus/TCP client and the ADAM model query make, behind one
// small seam (one implementation per OS in platform/<os>/net/), plus RecvTimeout, the only
// place where the library waits for incoming data.
//
// There is no socket class and no buffering: each caller owns its handle, sends a whole
// message with one SendBytes and reads a whole reply with one RecvTimeout.
//
// The two waits (connect and reply) are tasks on a loop (ConnectIPv4On, RecvTimeoutOn), so
// many sockets wait side by side on one thread; ConnectIPv4 and RecvTimeout run the same
// tasks to completion for a caller that blocks.
#include <cstdint>
#include <span>
#include <string>

#include "engine/loop.h"
#include "engine/task.h"

namespace vmio {

// An OS socket handle. kNoSocket stands for "none" and is what a failed OpenSocket gives.
using SocketHandle = std::intptr_t;
inline constexpr SocketHandle kNoSocket = -1;

enum class SocketKind { Tcp, Udp };

// The socket library's start and end, once per Modbus client object (Winsock 2.2 where it
// needs starting); the results are not checked.
void StartSockets();
void StopSockets();

// An IPv4 stream (TCP) or datagram (UDP) socket, or kNoSocket.
SocketHandle OpenSocket(SocketKind kind);
// Binds to 0.0.0.0 with an ephemeral port.
bool BindAnyLocal(SocketHandle s);
// The descriptor a loop watches for s.
inline int DescriptorOf(SocketHandle s) { return static_cast<int>(s); }
// Connect that gives up after timeoutMs (the system's own TCP connect time-out runs to
// minutes against a peer that drops the attempt). The address is dotted IPv4 text only,
// never resolved: other text becomes 255.255.255.255 and the connect fails. The socket is
// left blocking as it was.
engine::Task<bool> ConnectIPv4On(engine::Loop& loop, SocketHandle s, std::string dottedAddress, uint16_t port,
                                 int32_t timeoutMs);
bool ConnectIPv4(SocketHandle s, const std::string& dottedAddress, uint16_t port, int32_t timeoutMs);
// The seam under ConnectIPv4On. BeginConnectIPv4 makes s non-blocking and starts the connect:
// 1 connected at once, 0 under way (s turns writable when it ends), -1 failed. EndConnect
// takes what the wait for writable gave (as WaitForSocket) and says whether s is connected,
// leaving it blocking again and the failure's code for LastSocketError.
int32_t BeginConnectIPv4(SocketHandle s, const std::string& dottedAddress, uint16_t port);
bool EndConnect(SocketHandle s, int32_t waited);
// One send of the whole buffer, flags 0; -1 on failure, else what the system took.
int32_t SendBytes(SocketHandle s, std::span<const uint8_t> bytes);
// Waits on loop until s is ready for interest (engine::Interest bits) or the deadline
// (engine::NowMs() time) passes: 1 ready, 0 timed out, -1 failed (the socket holds an error).
engine::Task<int32_t> WaitForSocket(engine::Loop& loop, SocketHandle s, int interest, int64_t deadline);
// One recv that does not wait: the byte count, 0 when the peer closed, -1 on failure (or
// when nothing is there).
int32_t ReceiveBytes(SocketHandle s, uint8_t* buffer, int32_t length, int32_t flags);
void CloseSocket(SocketHandle s);
// The code of the last failed socket call, for trace texts.
int32_t LastSocketError();
// Whether the last failed socket call failed for want of a descriptor (the process's or the
// system's): the host's trouble, which says nothing of the device.
bool NoDescriptorLeft();

// Waits for data at most Timeout seconds, rounded to whole seconds (halves to even: 0.5
// polls, 2.5 waits 2), then makes exactly one recv, so a reply that arrives in pieces yields
// only its first piece. Returns the count read (> 0), 0 when the peer closed, -1 when recv
// failed, -2 when nothing arrived in time. A failed wait reports what the recv reports.
// Buffer must outlive the task.
engine::Task<int32_t> RecvTimeoutOn(engine::Loop& loop, SocketHandle Socket, uint8_t* Buffer, int32_t Length,
                                    int32_t Flags, float Timeout);
int32_t RecvTimeout(SocketHandle Socket, uint8_t* Buffer, int32_t Length, int32_t Flags, float Timeout);

}  // namespace vmio
