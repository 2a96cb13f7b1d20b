#pragma once
// The AX200 access-control software, as the AxxessID drivers use it.
//
// The drivers never talk to door hardware: they hand work to the AX200 software running on
// this computer, through this bridge. Its operations are those the drivers need of the
// software's objects; answers to a door status request come later, as events, which the
// bridge delivers to the AccessEvents it was created with whenever they arrive (while a
// reply is awaited, or inside WaitForEvents). Nothing here waits longer than kReplyTimeout for
// one reply. Each bridge holds its own attachment to the software, opened by Attach.
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/pumping_wait.h"
#include "engine/io.h"

namespace vmio {

// The events of the software's door-control object.
class AccessEvents {
 public:
  virtual ~AccessEvents() = default;
  // A status request was answered; Status() now holds the door's mode text.
  virtual void DoorStatus() = 0;
  // The software went away (or stopped speaking sense); Status() now reads empty.
  virtual void Disconnected() = 0;
};

enum class DoorCommand { kOpen, kUnlock, kNormal, kHighSecurity, kDeadlock };

struct AccessDoor {
  int32_t id = 0;
  std::string name;
};

struct AccessDoorList {
  bool valid = false;
  std::vector<AccessDoor> doors;
};

struct AccessSensor {
  std::string id;
  std::string name;
  std::string value;
};

class AccessBridge {
 public:
  // The longest wait for one awaited answer; beyond it the software counts as not answering.
  static constexpr std::chrono::milliseconds kReplyTimeout{2000};

  virtual ~AccessBridge() = default;

  // Attaches afresh (dropping any earlier attachment), hands over the device string and
  // answers whether the software is present. Not answering counts as absent.
  virtual bool Attach(const std::string& device) = 0;
  // Tells the software this computer's address (dotted IPv4, may be empty).
  virtual void SetAddress(const std::string& address) = 0;
  // The door list, asked with two selector strings; not answering counts as not valid.
  virtual AccessDoorList Doors(const std::string& a, const std::string& b) = 0;
  // The environment sensors and their current values; nothing when the software does not answer.
  virtual std::optional<std::vector<AccessSensor>> Sensors() = 0;
  // Asks for a door's status; the answer arrives as DoorStatus (or Disconnected).
  virtual void RequestStatus(const std::string& id) = 0;
  // The status text of the last answered request; empty after Disconnected.
  virtual std::string Status() const = 0;
  // Sends a door command; its outcome is not awaited.
  virtual void Command(DoorCommand command, const std::string& id) = 0;
  // Lets pending events run (timers included, and this bridge's events) until one of this
  // bridge's events may have arrived or the deadline passes.
  virtual void WaitForEvents(WaitClock::time_point deadline) = 0;
  // The same wait as a task on io's loop, which serves other devices meanwhile: the events
  // that have arrived by then are delivered, nothing else runs inside it. Where the loop cannot
  // watch the software's channel, it waits as WaitForEvents does.
  virtual engine::Task<void> AwaitEvents(engine::Io& io, WaitClock::time_point deadline) = 0;
};

// The platform's bridge, delivering its events to events (which must outlive it).
std::unique_ptr<AccessBridge> CreateAccessBridge(AccessEvents& events);

}  // namespace vmio
