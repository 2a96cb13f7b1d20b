#pragma once
// A simulated AX200 access-control service: a site of doors and environment sensors served
// over the service's line protocol on a Unix or TCP socket, to any number of clients.
//
// Requests (TAB-separated, LF-ended): HELLO device, ADDRESS addr, DOORS a b, STATUS id,
// COMMAND name id, SENSORS. STATUS is answered by an "EVENT doorStatus MODE" line (at once,
// late or never); commands change the door's mode (OPEN leaves it as it is). The faults a
// test needs: the software absent, the door list not valid, no answers at all, a Disconnected
// event, the connections closed. One background thread serves; every member is safe to call
// while it runs.
#include <memory>
#include <string>
#include <vector>

namespace vmio::sim {

struct Ax200Door {
  int id = 0;
  std::string name;
  std::string mode = "Normal";  // DoorUnlock, Normal, HighSecurity, Deadlock, or any text
};

struct Ax200Sensor {
  std::string id;
  std::string name;
  std::string value;
};

struct Ax200SimOptions {
  std::vector<Ax200Door> doors;
  std::vector<Ax200Sensor> sensors;
  // Where to listen: "" for a socket in a new temporary folder, "unix:PATH", or
  // "tcp:HOST:PORT" (port 0: an ephemeral one).
  std::string listen;
};

// Two doors and two sensors: what `vmio-sim ax200` and the demo serve by default.
Ax200SimOptions DefaultAx200Site();

// kDisconnect answers with the Disconnected event instead of the door's status; kClose ends the
// asking client's connection instead.
enum class StatusAnswer { kNow, kLate, kNever, kDisconnect, kClose };

class Ax200Sim {
 public:
  explicit Ax200Sim(Ax200SimOptions options = DefaultAx200Site());
  ~Ax200Sim();  // stops
  Ax200Sim(const Ax200Sim&) = delete;
  Ax200Sim& operator=(const Ax200Sim&) = delete;

  // Listens and serves; raises std::runtime_error when it cannot listen.
  void Start();
  // Stops serving, closes every socket and removes the temporary folder.
  void Stop();

  // What VMIO_AX200 is set to for a client: "unix:PATH" or "tcp:HOST:PORT".
  std::string Address() const;

  // A door's mode, as commands leave it or as set here; std::out_of_range for an unknown id.
  void SetDoorMode(int id, const std::string& mode);
  std::string DoorMode(int id) const;
  // A sensor's value; std::out_of_range for an unknown id.
  void SetSensorValue(const std::string& id, const std::string& value);
  std::vector<Ax200Door> Doors() const;
  std::vector<Ax200Sensor> Sensors() const;

  // How status requests are answered: at once, after delay_ms, never, or by Disconnected.
  void SetStatusAnswer(StatusAnswer answer, int delay_ms = 0);
  // HELLO answers PRESENT 0 while the software is absent.
  void SetPresent(bool present);
  // DOORS answers "valid 0" with no doors while the list is not valid.
  void SetDoorListValid(bool valid);
  // While silent, requests are received and logged but nothing is answered.
  void SetSilent(bool silent);
  // Sends "EVENT Disconnected" to every client now.
  void SendDisconnected();
  // Ends every client connection (the service going away); new ones are still accepted.
  void CloseConnections();

  // Every request line received, from all clients, in order of arrival.
  std::vector<std::string> Requests() const;
  void ClearRequests();
  // The device string of the last HELLO.
  std::string LastDevice() const;
  int ConnectionCount() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace vmio::sim
