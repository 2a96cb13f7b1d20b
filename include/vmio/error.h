#pragma once
// The one exception type that crosses the library's interface.
#include <cstdint>
#include <stdexcept>
#include <string>

#include "vmio/export.h"

namespace vmio {

// The error numbers the library raises besides a driver's own (IOErrors in io_device.h).
enum RuntimeError : int32_t {
  // The automation run-time's, each with its standard text (StandardErrorText).
  kInvalidProcedureCall = 5,
  kOverflow = 6,
  kOutOfMemory = 7,
  kSubscriptOutOfRange = 9,
  kTypeMismatch = 13,
  kDeviceIOError = 57,
  kDiskFull = 61,
  kPathFileAccessError = 75,
  kPathNotFound = 76,
  kObjectNotSet = 91,
  kCannotCreateObject = 429,
  kMemberNotSupported = 438,
  kWrongArgumentCount = 450,
  kKeyAlreadyAssociated = 457,
  // The HTTP client's, with the texts http_client.h lists.
  kHttpSessionFailed = 13101,
  kHttpRequestFailed = 13102,
  kHttpConnectFailed = 13104,
  kHttpReceiveFailed = 13106,
  kHttpCancelled = 13107,
  // An object used from a thread other than its own: what an automation host reports for a
  // call that crosses apartments (0x8001010E as a signed number).
  kWrongThread = -2147417842,
};

class VMIO_API AutomationError : public std::runtime_error {
 public:
  // A run-time error with the automation run-time's standard text for its number
  // (5, 6, 7, 9, 13, 91, 429, 438, 450, 457, kWrongThread); an empty description for others.
  explicit AutomationError(int32_t number);
  AutomationError(int32_t number, std::string description);

  int32_t Number() const { return number_; }
  const std::string& Description() const { return description_; }

 private:
  int32_t number_;
  std::string description_;
};

// The run-time's standard description for a number, or "" when it has none here.
VMIO_API std::string StandardErrorText(int32_t number);

}  // namespace vmio
