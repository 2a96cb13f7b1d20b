// vmio-sim ax200: a simulated AX200 access-control service with doors and sensors.
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "ax200_sim.h"
#include "control_lines.h"
#include "scoped_environment.h"
#include "serve.h"
#include "sim_makes.h"

namespace vmio::sim::cli {
namespace {

constexpr char kUsage[] =
    "usage: vmio-sim ax200 [options]\n"
    "  --listen unix:PATH|tcp:HOST:PORT  where to serve (default: a socket in a new temporary folder)\n"
    "  --door ID:NAME:MODE       a door; repeatable, replaces the default doors. MODE is\n"
    "                            DoorUnlock, Normal, HighSecurity, Deadlock or any text\n"
    "  --sensor ID:NAME:VALUE    an environment sensor; repeatable, replaces the default sensors\n"
    "  --status now|never|disconnect|close|MS  answer door status requests at once, never,\n"
    "                            with the Disconnected event, by closing the connection, or MS late\n"
    "  --absent                  report the software as not present\n"
    "  --invalid-doors           report the door list as not valid\n"
    "\n"
    "Prints \"VMIO_AX200=ADDRESS\" (set it for the client) and \"device: AX200\" (any text\n"
    "does for Connect), then serves until interrupted. Lines on standard input:\n"
    "  door ID MODE              set a door's mode\n"
    "  sensor ID VALUE           set a sensor's value (the rest of the line)\n"
    "  status now|never|disconnect|close|MS  how status requests are answered\n"
    "  disconnect                send the Disconnected event to every client\n"
    "  close                     end every client connection\n"
    "  doors valid|invalid       report the door list as valid or not\n"
    "  software present|absent   report the software as present or not\n"
    "  silent on|off             stop or resume answering anything\n"
    "  show                      list the doors and sensors\n";

// ID:NAME:LAST, cut at the first and the last colon: names may hold colons.
void SplitPointOption(const std::string& option, std::string& id, std::string& name, std::string& last) {
  const size_t first = option.find(':');
  const size_t second = option.rfind(':');
  if (first == std::string::npos || first == second || first == 0) throw BadArgument(option);
  id = option.substr(0, first);
  name = option.substr(first + 1, second - first - 1);
  last = option.substr(second + 1);
}

void SetStatus(Ax200Sim& sim, const std::string& word) {
  if (word == "now") {
    sim.SetStatusAnswer(StatusAnswer::kNow);
  } else if (word == "never") {
    sim.SetStatusAnswer(StatusAnswer::kNever);
  } else if (word == "disconnect") {
    sim.SetStatusAnswer(StatusAnswer::kDisconnect);
  } else if (word == "close") {
    sim.SetStatusAnswer(StatusAnswer::kClose);
  } else {
    sim.SetStatusAnswer(StatusAnswer::kLate, ParseCount(word));
  }
}

std::string Show(const Ax200Sim& sim) {
  std::string text = "doors:";
  for (const Ax200Door& d : sim.Doors()) text += " " + std::to_string(d.id) + "=" + d.name + "(" + d.mode + ")";
  text += "; sensors:";
  for (const Ax200Sensor& s : sim.Sensors()) text += " " + s.id + "=" + s.name + "(" + s.value + ")";
  return text;
}

std::string Control(Ax200Sim& sim, const std::string& line) {
  std::istringstream in(line);
  std::string command, first;
  in >> command >> first;
  std::string rest;
  std::getline(in >> std::ws, rest);
  try {
    if (command == "door" && !rest.empty()) {
      sim.SetDoorMode(ParseCount(first), rest);
      return Show(sim);
    }
    if (command == "sensor" && !first.empty()) {
      sim.SetSensorValue(first, rest);
      return Show(sim);
    }
    if (command == "status" && !first.empty()) {
      SetStatus(sim, first);
      return "ok";
    }
    if (command == "disconnect") {
      sim.SendDisconnected();
      return "ok";
    }
    if (command == "close") {
      sim.CloseConnections();
      return "ok";
    }
    if (command == "doors" && (first == "valid" || first == "invalid")) {
      sim.SetDoorListValid(first == "valid");
      return "ok";
    }
    if (command == "software" && (first == "present" || first == "absent")) {
      sim.SetPresent(first == "present");
      return "ok";
    }
    if (command == "silent" && ParseOnOff(first)) {
      sim.SetSilent(*ParseOnOff(first));
      return "ok";
    }
    if (command == "show") return Show(sim);
  } catch (const std::exception& e) {
    return "error: " + std::string(e.what());
  }
  return "error: unknown command '" + line +
         "' (door ID MODE, sensor ID VALUE, status now|never|disconnect|close|MS, disconnect, close, "
         "doors valid|invalid, software present|absent, silent on|off, show)";
}

}  // namespace

int RunAx200(const std::vector<std::string>& args) {
  Ax200SimOptions options;
  std::vector<Ax200Door> doors;
  std::vector<Ax200Sensor> sensors;
  std::string status = "now";
  bool absent = false;
  bool invalid_doors = false;
  const auto read_option = [&](const std::vector<std::string>& a, size_t& i) {
    const std::string& option = a[i];
    std::string id, name, last;
    if (option == "--listen") {
      options.listen = TakeValue(a, i);
    } else if (option == "--door") {
      SplitPointOption(TakeValue(a, i), id, name, last);
      doors.push_back({ParseCount(id), name, last});
    } else if (option == "--sensor") {
      SplitPointOption(TakeValue(a, i), id, name, last);
      sensors.push_back({id, name, last});
    } else if (option == "--status") {
      status = TakeValue(a, i);
      if (status != "now" && status != "never" && status != "disconnect" && status != "close") ParseCount(status);
    } else if (option == "--absent") {
      absent = true;
    } else if (option == "--invalid-doors") {
      invalid_doors = true;
    } else {
      return false;
    }
    return true;
  };
  if (const std::optional<int> exit_code = ReadOptions("ax200", kUsage, kUsage, args, read_option)) return *exit_code;
  const Ax200SimOptions site = DefaultAx200Site();
  options.doors = doors.empty() ? site.doors : doors;
  options.sensors = sensors.empty() ? site.sensors : sensors;
  std::unique_ptr<Ax200Sim> sim;
  const auto start = [&] {
    sim = std::make_unique<Ax200Sim>(options);
    sim->Start();
    SetStatus(*sim, status);
    sim->SetPresent(!absent);
    sim->SetDoorListValid(!invalid_doors);
    std::cout << "VMIO_AX200=" << sim->Address() << std::endl;
    return std::string("AX200");
  };
  return StartAndServe("ax200", start, [&sim](const std::string& line) { return Control(*sim, line); });
}

namespace {

// The service and where the library finds it: VMIO_AX200, for this process while it runs.
struct ServiceInEnvironment {
  ServiceInEnvironment() {
    service.Start();
    address.emplace("VMIO_AX200", service.Address());
  }
  Ax200Sim service;
  std::optional<ScopedEnvironment> address;
};

RunningDevice StartFixture() { return RunningDevice{std::make_shared<ServiceInEnvironment>(), "AX200"}; }

const bool kDoors = RegisterMake({
    .progid = "VMIO.AxxessIDDoor",
    .start = &StartFixture,
    .write = Variant("Locked"),
    .name = "ax200",
    .help = "an AX200 access-control service with doors and environment sensors (lines on a local socket)",
    .run = &RunAx200,
});
const bool kSensors = RegisterMake({.progid = "VMIO.AxxessIDSensor", .start = &StartFixture});

}  // namespace
}  // namespace vmio::sim::cli
