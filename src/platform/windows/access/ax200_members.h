#pragma once
// Every name the bridge uses to reach the AX200 software's automation objects: the classes'
// programmatic names, their members and the door-control object's events. The calls are
// late-bound, so matching another release of the AX200 type library changes only this table.
#include <array>
#include <cstddef>

#include "access/access_bridge.h"

namespace vmio {

struct Ax200Members {
  // The application object: takes the device string, answers whether the software runs.
  const wchar_t* application;
  const wchar_t* device;   // property put, the device string
  const wchar_t* present;  // property get, Boolean
  // The connection object: takes this computer's address.
  const wchar_t* connection;
  const wchar_t* local_address;  // property put, dotted IPv4
  // A data object: lists. GetDoors(a, b, valid by reference) answers an array of door records
  // (ID, Name); GetSensors() an array of sensor records (ID, Name, Value).
  const wchar_t* data;
  const wchar_t* get_doors;
  const wchar_t* get_sensors;
  const wchar_t* record_id;
  const wchar_t* record_name;
  const wchar_t* record_value;
  // The door-control object: status requests and answers, and the door commands, each given
  // the door id as decimal text, indexed by DoorCommand.
  const wchar_t* door_control;
  const wchar_t* request_status;
  const wchar_t* status;  // property get, the last answered status text
  std::array<const wchar_t*, 5> commands;
  // The door-control object's events.
  const wchar_t* door_status_event;
  const wchar_t* disconnected_event;
};

inline constexpr Ax200Members kAx200{
    .application = L"AX200.Application",
    .device = L"Device",
    .present = L"Present",
    .connection = L"AX200.Connection",
    .local_address = L"LocalAddress",
    .data = L"AX200.Data",
    .get_doors = L"GetDoors",
    .get_sensors = L"GetSensors",
    .record_id = L"ID",
    .record_name = L"Name",
    .record_value = L"Value",
    .door_control = L"AX200.DoorCon",
    .request_status = L"RequestStatus",
    .status = L"Status",
    .commands = {L"OpenDoor", L"UnlockDoor", L"NormalMode", L"HighSecurityMode", L"DeadlockDoor"},
    .door_status_event = L"doorStatus",
    .disconnected_event = L"Disconnected",
};

// The command's member name on the door-control object.
constexpr const wchar_t* CommandMember(DoorCommand command) { return kAx200.commands[static_cast<size_t>(command)]; }

}  // namespace vmio
