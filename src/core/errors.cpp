#include "core/errors.h"

#include "vmio/io_device.h"

#include <utility>

namespace vmio {

std::string StandardErrorText(int32_t number) {
  switch (number) {
    case kInvalidProcedureCall:
      return "Invalid procedure call or argument";
    case kOverflow:
      return "Overflow";
    case kOutOfMemory:
      return "Out of memory";
    case kSubscriptOutOfRange:
      return "Subscript out of range";
    case kTypeMismatch:
      return "Type mismatch";
    case kTooManyFiles:
      return "Too many files";
    case kObjectNotSet:
      return "Object variable or With block variable not set";
    case kCannotCreateObject:
      return "ActiveX component can't create object";
    case kMemberNotSupported:
      return "Object doesn't support this property or method";
    case kWrongArgumentCount:
      return "Wrong number of arguments or invalid property assignment";
    case kKeyAlreadyAssociated:
      return "This key is already associated with an element of this collection";
    case kWrongThread:
      return "The application called an interface that was marshalled for a different thread.";
    default:
      return {};
  }
}

AutomationError::AutomationError(int32_t number) : AutomationError(number, StandardErrorText(number)) {}

AutomationError::AutomationError(int32_t number, std::string description)
    : std::runtime_error(description), number_(number), description_(std::move(description)) {}

void Raise(int32_t number) { throw AutomationError(number); }
void Raise(int32_t number, std::string description) { throw AutomationError(number, std::move(description)); }

void RaiseNotConnected() { Raise(IOErrorNotConnected, "Not connected"); }

void RaiseNotAnOutput(int32_t index) {
  Raise(IOErrorInvalidPortDirection, "Port " + std::to_string(int64_t{index} + 1) + "is not an output port");
}

void RaiseConnectionFailed(std::string description) { Raise(IOErrorConnectionFailed, std::move(description)); }

void RaiseGettingValue() { Raise(IOErrorGettingValue, "Unable to connect to the device"); }

bool RequireBoolean(const Variant& value) { return value.AsBool(); }

}  // namespace vmio
