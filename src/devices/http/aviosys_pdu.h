#pragma once
// Aviosys IP power distribution units, driven by "/Set.cmd?CMD=" commands.
//
// Quirks: every command is answered with one short line, often wrapped in "<html>...</html>"
// and sometimes followed by more lines, which are dropped. A unit reports its socket count to
// GetPowerNum; one that answers "HTTPCMD_UNKNOWPIN" is the fixed model with eight inputs
// (P51-P58) and eight sockets (P61-P68), while other units number their sockets from P60. Once
// an object has met the fixed model it keeps that numbering, even after a Connect to another
// unit. Sockets report direction 3 (read back). PortDirection, PortType and PortName check the
// index through Ports, so an unconnected object answers 45003 before 9. A unit with no ports
// keeps the previous value array, so reads go by that array's bounds.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "devices/http/http_device.h"

namespace vmio {

// Reply handling on plain text, apart from the transport.
namespace aviosys {
// A reply as the unit's commands are read: cut at its first CR LF, then stripped of a
// surrounding <html>...</html>.
std::string CleanReply(std::string reply);
// The "Pnn=v" pairs of a GetIo/GetPower reply: pin nn is port nn - base + first, stored when
// inside 0 .. portCount - 1 (9 beyond the value array).
void ReadStates(std::string_view reply, int32_t base, int32_t first, int32_t portCount, std::vector<bool>& values);
// The name in a GetPortName reply (5 when the reply is too short for the cut).
std::string ReadPortName(std::string_view reply);
}  // namespace aviosys

class AviosysPDU final : public HttpDevice {
 public:
  std::string PortName(int32_t Index) override;

 protected:
  // 45003 when not connected (it asks Ports), 9 outside 0 .. Ports - 1.
  void CheckIndex(int32_t Index) override;

 private:
  engine::Task<void> BuildPortTable() override;
  // Checks no bounds before sending (see WritePort in the .cpp).
  engine::Task<void> WritePort(int32_t Index, Variant NewValue) override;
  // GET "/Set.cmd?CMD=" + Command (sent as it stands, "+" included): the cleaned reply on
  // status 200, nothing otherwise. Never raises.
  engine::Task<std::optional<std::string>> SendCommand(std::string Command);
  // GetIo and GetPower read every port; the index is checked only when the table answers.
  int32_t GroupOf(int32_t) override { return 0; }
  engine::Task<void> ReadGroup(int32_t Group) override;
  // 1 on the fixed model, whose pins start one later than other units'.
  int32_t PinOffset() const { return fixed_model_ ? 1 : 0; }

  bool fixed_model_ = false;
  int32_t InputCount = 0;
};

}  // namespace vmio
