#pragma once
// What every part of the C interface shares: the handle behind vmio_object, the guard that turns
// what the C++ side raises into a number and this thread's description, and values both ways.
#include <cstdint>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "core/errors.h"
#include "vmio/error.h"
#include "vmio/object.h"
#include "vmio/variant.h"
#include "vmio/vmio.h"

struct vmio_object {
  std::shared_ptr<vmio::Object> object;
};

namespace vmio::capi {

// This thread's description of the last call's error.
std::string& Description();

// Runs a call's body: 0 when it returned, else the error it raised, with its description kept.
template <class Body>
int32_t Guard(Body body) noexcept {
  std::string& description = Description();
  try {
    description.clear();
    body();
    return 0;
  } catch (const AutomationError& e) {
    try {
      description = e.Description();
    } catch (...) {
    }
    return e.Number();
  } catch (const std::bad_alloc&) {
    description = StandardErrorText(7);
    return 7;
  } catch (const std::exception& e) {
    try {
      description = e.what();
    } catch (...) {
    }
    return 5;
  } catch (...) {
    description = StandardErrorText(5);
    return 5;
  }
}

// An out-parameter the caller must give: 5 when null.
template <class T>
void Require(T* out) {
  if (!out) Raise(kInvalidProcedureCall);
}

// The object behind a handle, on its own thread: 91 for null, -2147417842 from another thread.
Object& ObjectOf(vmio_object* handle);

// A copy for the caller to free with vmio_free.
char* CopyText(const std::string& text);

Variant FromC(const vmio_value& v);
std::vector<Variant> FromC(const vmio_value* args, size_t count);
// Fills out (which the caller has cleared or never used) with a copy of v; 13 for an array.
void ToC(const Variant& v, vmio_value& out);

}  // namespace vmio::capi
