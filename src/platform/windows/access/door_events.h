#pragma once
// The door-control object's events, received late-bound: the event interface and its dispatch
// ids come from the object's own class information (its default source interface, the events
// by name), and a small sink is advised on the object's connection point for that interface.
#include <windows.h>

// After windows.h, which it needs.
#include <ocidl.h>

#include "access/access_bridge.h"
#include "platform/windows/access/late_binding.h"

namespace vmio {

class DoorEventSink;

class DoorEventLink {
 public:
  DoorEventLink() = default;
  DoorEventLink(const DoorEventLink&) = delete;
  DoorEventLink& operator=(const DoorEventLink&) = delete;
  ~DoorEventLink() { Unadvise(); }

  // Delivers the object's doorStatus and Disconnected events to events until Unadvise. False
  // (and nothing advised) when the object describes no such events or offers no connection
  // point for them.
  bool Advise(IDispatch* door_control, AccessEvents& events);
  void Unadvise();

 private:
  ComRef<IConnectionPoint> point_;
  DWORD cookie_ = 0;
  DoorEventSink* sink_ = nullptr;  // our reference; the object holds its own while advised
};

}  // namespace vmio
