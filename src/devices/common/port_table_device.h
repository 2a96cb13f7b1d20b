#pragma once
// The port table every driver shares, and the accessors that answer from it.
//
// A port holds its direction, automation type, name (for drivers that know names at Connect)
// and last value. Ports are read in groups: each group has its own state cache, and a read of
// a port refreshes the port's group when the cache is stale, then answers from the table.
// A driver states its layout (BuildPortTable), which group a port belongs to (GroupOf), how a
// group is read from the device (ReadGroup), its writes (WritePort), and where it differs.
// Those three exchanges are tasks: a blocking member runs them to completion on the thread's
// own loop, the engine interleaves them with every other device's (engine/async_device.h).
//   Connect        Host = Device; unconnected until BuildPortTable returns, so a Connect that
//                  fails at any step leaves Connected false when its error is raised
//   Ports          45003 "Not connected" unless connected (RequireConnected), else PortCount
//   PortDirection  9 outside 0..PortCount-1 (CheckIndex), else the stored direction (no
//                  connection test)
//   PortType       likewise the stored type (no connection test)
//   PortName       likewise the stored name (no connection test)
//   PortValue      45003 unless connected; the group's refresh when stale; the stored value
//                  (9 outside the value table)
//   Disconnect     Connected = false, Host = ""; nothing is sent, the table is kept
// Every accessor but Disconnect (which destructors call) first raises kWrongThread unless
// called on the object's own thread; a driver's own version of one reaches the check through
// the accessors it calls.
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/common.h"
#include "engine/async_device.h"
#include "vmio/io_device.h"

namespace vmio {

struct Port {
  int32_t direction = 0;
  int32_t type = vtBool;
  std::string name;
  Variant value;
};

class PortTableDevice : public IODevice, public engine::AsyncDevice {
 public:
  void Connect(const std::string& Device) override;
  void Disconnect() override;
  int32_t Ports() override;
  int32_t PortDirection(int32_t Index) override;
  int32_t PortType(int32_t Index) override;
  std::string PortName(int32_t Index) override;
  Variant PortValue(int32_t Index) override;
  void PortValue(int32_t Index, const Variant& NewValue) override;

  engine::Task<void> ConnectOn(engine::Io& io, std::string device) override;
  engine::Task<void> RefreshOn(engine::Io& io) override;
  engine::Task<void> WriteOn(engine::Io& io, int32_t index, Variant value) override;
  std::vector<Variant> TableValues() const override;

 protected:
  // When a group's cache is marked fresh: after a successful read (the usual), before asking
  // (a failed read holds off the next one too), or never (every read asks the device).
  enum class ReadCaching { kAfterRead, kBeforeRead, kNever };
  static constexpr int32_t kNoGroup = -1;

  explicit PortTableDevice(ReadCaching caching = ReadCaching::kAfterRead) : caching_(caching) {}

  // Asks the device for its layout and fills the table; raises when it cannot. A driver that
  // must stay connected past one of its steps sets Connected itself.
  virtual engine::Task<void> BuildPortTable() = 0;
  // The group a read of Index refreshes (kNoGroup: none); may raise for a bad index. Unless a
  // driver says otherwise, each port is its own group, its index checked first.
  virtual int32_t GroupOf(int32_t Index);
  // Reads one group's states from the device into the table; raises when it cannot.
  virtual engine::Task<void> ReadGroup(int32_t Group) = 0;
  // The property put: most drivers open it with BeginWrite or BeginOutputWrite.
  virtual engine::Task<void> WritePort(int32_t Index, Variant NewValue) = 0;

  // The loop the exchange under way runs on, for the driver's transport calls.
  engine::Io& CurrentIo() { return *io_; }
  // Runs one of the driver's own exchanges to completion for a blocking member.
  template <class T>
  T RunExchange(engine::Task<T> task) {
    engine::BlockingIo lease;
    const IoBinding bind(*this, lease.io());
    return engine::RunToCompletion(lease.io().loop(), std::move(task));
  }

  // 45003 unless connected. Every accessor that needs a connection asks it first.
  virtual void RequireConnected();
  // Raises 9 unless 0 <= Index < PortCount. PortDirection, PortType and PortName ask it first.
  virtual void CheckIndex(int32_t Index);

  // The most ports a table takes; a device that claims more is refused before the table is
  // allocated (and before a refresh names every one of them in a request).
  static constexpr int32_t kMaxPorts = 65536;

  // Sizes the table to count ports of one type: directions 0, no names, values false (Boolean)
  // or "" (text). A count read from a device that the table cannot take fails the Connect that
  // asked: the table is left as it was, and 9 (negative), 6 (beyond 32 bits) or 7 (above
  // kMaxPorts) is raised.
  void ResizePorts(int64_t count, int32_t type = vtBool);
  // Inputs first: ports below inputs get IOInput, the rest IOBidirectional (read back).
  void FillDirections(int32_t inputs);
  // The port at Index; 9 outside the table (whatever PortCount says).
  Port& At(int32_t Index);
  // The cached value; 9 outside the table.
  const Variant& Value(int32_t Index) { return At(Index).value; }
  void SetValue(int32_t Index, Variant value) { At(Index).value = std::move(value); }

  // Runs a reply parser over the table's Boolean states; what it stored before raising stays.
  template <class Parser>
  void ParseStates(Parser&& parse) {
    std::vector<bool> states = BooleanStates();
    try {
      parse(states);
    } catch (...) {
      SetBooleanStates(states);
      throw;
    }
    SetBooleanStates(states);
  }

  // The cache of a group, made on first use and kept for the object's life.
  StateCache& GroupCache(int32_t Group);

  // The common opening of a write: 45003 when not connected; the direction (9 for a bad index);
  // 45004 for an input. False when the port is not a read-back output (the write is a no-op).
  bool BeginWrite(int32_t Index);
  // BeginWrite, then 13 for a value that is not Boolean. Returns the state to send, or nothing
  // when the write is a no-op.
  std::optional<bool> BeginOutputWrite(int32_t Index, const Variant& NewValue);

  bool Connected = false;
  std::string Host;
  int32_t PortCount = 0;
  std::vector<Port> PortTable;

 private:
  // Points CurrentIo at io while an exchange runs, and back when it ends.
  class IoBinding {
   public:
    IoBinding(PortTableDevice& device, engine::Io& io) : device_(device), previous_(std::exchange(device.io_, &io)) {}
    ~IoBinding() { device_.io_ = previous_; }
    IoBinding(const IoBinding&) = delete;
    IoBinding& operator=(const IoBinding&) = delete;

   private:
    PortTableDevice& device_;
    engine::Io* previous_;
  };

  // Reads a group, marking its cache as the driver's caching says.
  engine::Task<void> RefreshGroup(int32_t Group);
  std::vector<bool> BooleanStates() const;
  void SetBooleanStates(const std::vector<bool>& states);

  const ReadCaching caching_;
  std::vector<StateCache> group_caches_;
  engine::Io* io_ = nullptr;
};

}  // namespace vmio
