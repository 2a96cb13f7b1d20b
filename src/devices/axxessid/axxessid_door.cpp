#include "devices/axxessid/axxessid_door.h"

#include <chrono>
#include <string_view>
#include <utility>

#include "core/common.h"
#include "core/errors.h"
#include "core/numeric.h"

namespace vmio {
namespace {

constexpr int32_t kStatusTimeout = 2000;  // ms

// The AX200 mode texts and the port values they read as.
constexpr std::pair<std::string_view, std::string_view> kModes[] = {
    {"DoorUnlock", "Unlocked"},
    {"Normal", "Normal"},
    {"HighSecurity", "Secure"},
    {"Deadlock", "Locked"},
};

// The values a host writes, in the order they are compared, and the commands they send.
constexpr std::pair<std::string_view, DoorCommand> kCommands[] = {
    {"Open", DoorCommand::kOpen},           {"Unlocked", DoorCommand::kUnlock}, {"Normal", DoorCommand::kNormal},
    {"Secure", DoorCommand::kHighSecurity}, {"Locked", DoorCommand::kDeadlock},
};

}  // namespace

engine::Task<void> AxxessIDDoor::BuildPortTable() {
  Attach(Host);
  AccessDoorList list = bridge_->Doors("Y", "");
  if (!list.valid) {
    DoorIDs.clear();
    SetPoints({});
    co_return;
  }
  std::vector<int16_t> ids;
  std::vector<std::string> names;
  for (AccessDoor& door : list.doors) {
    ids.push_back(RoundToInt16(door.id));
    names.push_back(std::move(door.name));
  }
  DoorIDs = std::move(ids);
  SetPoints(names);
  co_return;
}

engine::Task<void> AxxessIDDoor::ReadGroup(int32_t Index) {
  const std::string id = std::to_string(DoorIDs[static_cast<size_t>(Index)]);
  WaitingForStatus = true;
  bridge_->RequestStatus(id);
  const int32_t start = TickCount();
  // Just past the time-out, so the last wait ends where the tick check fails. A host's blocking
  // read lets events run meanwhile (the answer among them); on an engine's loop the answer is
  // awaited like a reply, and other devices are served meanwhile.
  const auto deadline = WaitClock::now() + std::chrono::milliseconds(kStatusTimeout + 1);
  while (WaitingForStatus) {
    if (blocking_) {
      bridge_->WaitForEvents(deadline);
    } else {
      co_await bridge_->AwaitEvents(CurrentIo(), deadline);
    }
    if (TickDiff(start) > kStatusTimeout) Raise(IOErrorGettingValue, "Timed out getting door status");
  }
  const std::string status = bridge_->Status();
  if (status.empty()) Raise(IOErrorGettingValue, "The AX200 software is not running");
  Variant read;  // an unknown mode reads empty
  for (const auto& [mode, value] : kModes) {
    if (status == mode) read = Variant(std::string(value));
  }
  SetValue(Index, std::move(read));
  co_return;
}

engine::Task<void> AxxessIDDoor::WritePort(int32_t Index, Variant NewValue) {
  if (!BeginWrite(Index)) co_return;
  const std::string id = std::to_string(DoorIDs[static_cast<size_t>(Index)]);
  if (!NewValue.IsString()) co_return;
  for (const auto& [value, command] : kCommands) {
    if (NewValue.AsString() == value) {
      bridge_->Command(command, id);
      co_return;
    }
  }
  co_return;
}

void AxxessIDDoor::DoorStatus() { WaitingForStatus = false; }

void AxxessIDDoor::Disconnected() { WaitingForStatus = false; }

}  // namespace vmio
