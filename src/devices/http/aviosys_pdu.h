#pragma once
// Aviosys IP power distribution units, driven by "/Set.cmd?CMD=" commands.
//
// Quirks: every command is answered with one short line, often wrapped in "<html>...</html>"
// and sometimes followed by more lines, which are dropped. A unit reports its socket count to
// GetPowerNum; one that answers "HTTPCMD_UNKNOWPIN" is the fixed model with eight inputs
// (P51-P58) and eight sockets (P61-P68), while other units number their sockets from P60. Once
// an object has met the fixed model it keeps that numbering, even after a Connect to another
// unit. Sockets report direction 3 (read back). PortDirection, PortType and PortName check the
// index through Ports, so an unconnected object answers 45003 before 9.
#include <cstdint>
#include <string>
#include <string_view>

#include "http/device_request.h"

namespace vmio {

class AviosysPDU final : public HttpDevice {
 public:
  void Connect(const std::string& Device) override;
  int32_t PortDirection(int32_t Index) override;
  int32_t PortType(int32_t Index) override;
  std::string PortName(int32_t Index) override;
  Variant PortValue(int32_t Index) override;
  void PortValue(int32_t Index, const Variant& NewValue) override;

 private:
  // GET "/Set.cmd?CMD=" + Command (sent as it stands, "+" included). LastReply takes the body
  // cut at its first CR LF and stripped of a surrounding <html>...</html>. True on status 200.
  bool SendCommand(std::string_view Command);
  void RefreshStates();
  // Stores the "Pnn=v" pairs of LastReply: pin nn is port nn - base + first.
  void StoreStates(int32_t base, int32_t first);
  // 45003 when not connected (it asks Ports), 9 outside 0 .. Ports - 1.
  void CheckIndex(int32_t Index);
  // The value array is only re-made for units with ports, so its own bounds apply (9 outside).
  bool CachedValue(int32_t Index) const;
  void StoreValue(int32_t Index, bool state);
  // 1 on the fixed model, whose pins start one later than other units'.
  int32_t PinOffset() const { return fixed_model_ ? 1 : 0; }

  bool fixed_model_ = false;
  int32_t InputCount = 0;
  int32_t last_read_ = 0;
};

}  // namespace vmio
