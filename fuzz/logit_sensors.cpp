// The LogIT sensor-table loader on any file, then every table the file names asked for a
// reading. The first four bytes are the raw reading, the rest the file.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

#include "devices/logit/logit_calibration.h"
#include "vmio/error.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  int32_t raw = 0;
  std::memcpy(&raw, data, sizeof raw);
  const std::span<const uint8_t> file(data + 4, size - 4);
  try {
    vmio::LoadSensorTableBytes(file);
  } catch (const vmio::AutomationError&) {
    // 457, 9 or 13: the collections keep what was read before the fault.
  }
  // Table names as the file spells them ("%%TABLE name"); ones never closed are not there (5).
  const std::string_view text(reinterpret_cast<const char*>(file.data()), file.size());
  for (size_t at = text.find("%%TABLE "); at != std::string_view::npos; at = text.find("%%TABLE ", at + 1)) {
    const std::string_view rest = text.substr(at + 8);
    const std::string name(rest.substr(0, rest.find_first_of("\r\n")));
    try {
      if (!std::isfinite(vmio::ConvertReading(raw, name))) std::abort();
    } catch (const vmio::AutomationError&) {
    }
  }
  vmio::FindSensor("1");
  return 0;
}
