#pragma once
/// @file
/// The one exception type that crosses the library's interface.
#include <cstdint>
#include <stdexcept>
#include <string>

#include "vmio/export.h"

namespace vmio {

/// The error numbers the library raises besides a driver's own (vmio::IOErrors in io_device.h).
enum RuntimeError : int32_t {
  // The automation run-time's, each with its standard text (StandardErrorText).
  kInvalidProcedureCall = 5,    ///< "Invalid procedure call or argument"
  kOverflow = 6,                ///< "Overflow": a number too large for its type
  kOutOfMemory = 7,             ///< "Out of memory"
  kSubscriptOutOfRange = 9,     ///< "Subscript out of range": a port index or position past the end
  kTypeMismatch = 13,           ///< "Type mismatch": a value of the wrong type
  kDeviceIOError = 57,          ///< "Device I/O error": a download could not be written
  kTooManyFiles = 67,           ///< "Too many files": the process ran out of descriptors
  kDiskFull = 61,               ///< "Disk full": a download could not be written
  kPathFileAccessError = 75,    ///< "Path/File access error": a download's file could not be made
  kPathNotFound = 76,           ///< "Path not found": a download's folder does not exist
  kObjectNotSet = 91,           ///< "Object variable or With block variable not set"
  kCannotCreateObject = 429,    ///< "ActiveX component can't create object": no class of that name
  kMemberNotSupported = 438,    ///< "Object doesn't support this property or method"
  kWrongArgumentCount = 450,    ///< "Wrong number of arguments or invalid property assignment"
  kKeyAlreadyAssociated = 457,  ///< "This key is already associated with an element of this collection"
  // The HTTP client's, with the texts http_client.h lists.
  kHttpSessionFailed = 13101,  ///< "Failed to initialise the HTTP session"
  kHttpRequestFailed = 13102,  ///< "Failed to initialise the HTTP request"
  kHttpConnectFailed = 13104,  ///< "Failed to connect to the HTTP server."
  kHttpReceiveFailed = 13106,  ///< the reply broke off or was too long ("Download file truncated", ...)
  kHttpCancelled = 13107,      ///< "Download cancelled"
  /// An object used from a thread other than its own (0x8001010E as a signed number): "The
  /// application called an interface that was marshalled for a different thread.", what an
  /// automation host reports for a call that crosses apartments.
  kWrongThread = -2147417842,
};

/// An error with an automation error number and a fixed English description: what every
/// failing call raises.
class VMIO_API AutomationError : public std::runtime_error {
 public:
  /// A run-time error with the automation run-time's standard text for its number
  /// (5, 6, 7, 9, 13, 67, 91, 429, 438, 450, 457, kWrongThread); an empty description for others.
  explicit AutomationError(int32_t number);
  /// An error with a description of its own (a driver's, the HTTP client's).
  AutomationError(int32_t number, std::string description);

  /// The error number (45001 "Unable to connect to the device", 9, ...).
  int32_t Number() const { return number_; }
  /// The fixed description; what() gives the same text.
  const std::string& Description() const { return description_; }

 private:
  int32_t number_;
  std::string description_;
};

/// The run-time's standard description for a number, or "" when it has none here.
VMIO_API std::string StandardErrorText(int32_t number);

}  // namespace vmio
