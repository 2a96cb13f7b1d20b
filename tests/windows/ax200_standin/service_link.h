#pragma once
// The stand-in's one link to the AX200 line service that VMIO_AX200 names ("tcp:HOST:PORT"),
// shared by every object of the stand-in on this thread, as the real software is one program.
//
// Requests and their replies are synchronous (up to 2000 ms each). Events are never fired
// inside a call: the socket reports to a hidden message-only window (WSAAsyncSelect), and
// doorStatus and Disconnected are fired from its window procedure, so they reach a host only
// while its thread dispatches messages. The connection closing fires Disconnected.
#include <windows.h>
#include <winsock2.h>

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "access/ax200_lines.h"

namespace ax200 {

// What the link tells the door-control objects.
class EventListener {
 public:
  virtual ~EventListener() = default;
  virtual void OnDoorStatus(const std::string& status) = 0;
  virtual void OnDisconnected() = 0;
};

class ServiceLink {
 public:
  // This thread's link, created on first use.
  static ServiceLink& Get();

  // Sends a request (connecting first when not connected); false when it could not be sent.
  bool Send(const std::string& line);
  // Sends a request and answers its reply lines: the first, then as many more as more_lines
  // says the first announces. Nothing when the service does not answer in time.
  std::optional<std::vector<std::string>> Ask(const std::string& line, size_t (*more_lines)(const std::string& first));

  void Listen(EventListener* listener);
  void Forget(EventListener* listener);

 private:
  ServiceLink();
  bool Connect();
  void Close();
  // Reads what has arrived; false when the connection has ended.
  bool Read();
  // The lines read so far: events are queued for the window, the rest kept as replies.
  void SortLines();
  void Lost();
  void FireQueued();
  static LRESULT CALLBACK WindowProcedure(HWND window, UINT message, WPARAM w, LPARAM l);

  HWND window_ = nullptr;
  SOCKET socket_ = INVALID_SOCKET;
  vmio::LineBuffer input_;
  std::deque<std::string> replies_;
  std::deque<std::string> events_;  // event lines waiting to be fired from the window
  std::vector<EventListener*> listeners_;
};

}  // namespace ax200
