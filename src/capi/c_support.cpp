#include "capi/c_support.h"

#include <cstdlib>
#include <cstring>
#include <limits>

namespace vmio::capi {
namespace {

// A whole number of a narrower type, or 6 (overflow) when it does not fit.
template <class T>
T Narrow(int32_t n) {
  if (n < std::numeric_limits<T>::min() || n > std::numeric_limits<T>::max()) Raise(kOverflow);
  return static_cast<T>(n);
}

}  // namespace

std::string& Description() {
  thread_local std::string description;
  return description;
}

Object& ObjectOf(vmio_object* handle) {
  if (!handle || !handle->object) Raise(kObjectNotSet);
  handle->object->RequireOwnThread();
  return *handle->object;
}

char* CopyText(const std::string& text) {
  auto* copy = static_cast<char*>(std::malloc(text.size() + 1));
  if (!copy) throw std::bad_alloc();
  std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  return copy;
}

Variant FromC(const vmio_value& v) {
  switch (v.type) {
    case VMIO_EMPTY:
      return Variant();
    case VMIO_BOOL:
      return Variant(v.integer != 0);
    case VMIO_UI1:
      return Variant(Narrow<uint8_t>(v.integer));
    case VMIO_I2:
      return Variant(Narrow<int16_t>(v.integer));
    case VMIO_I4:
      return Variant(v.integer);
    case VMIO_R8:
      return Variant(v.real);
    case VMIO_STRING:
      if (!v.text) return Variant(std::string());
      return Variant(std::string(v.text, v.text_length ? v.text_length : std::strlen(v.text)));
    case VMIO_OBJECT:
      return Variant(v.object ? v.object->object : nullptr);
    default:
      Raise(kInvalidProcedureCall);
  }
}

std::vector<Variant> FromC(const vmio_value* args, size_t count) {
  if (count && !args) Raise(kInvalidProcedureCall);
  std::vector<Variant> out;
  out.reserve(count);
  for (size_t i = 0; i < count; ++i) out.push_back(FromC(args[i]));
  return out;
}

void ToC(const Variant& v, vmio_value& out) {
  vmio_value c{};
  c.type = v.VarType();
  switch (c.type) {
    case VMIO_EMPTY:
      break;
    case VMIO_BOOL:
      c.integer = v.AsBool() ? 1 : 0;
      break;
    case VMIO_UI1:
    case VMIO_I2:
    case VMIO_I4:
      c.integer = v.AsInt32();
      break;
    case VMIO_R8:
      c.real = v.AsDouble();
      break;
    case VMIO_STRING:
      c.text = CopyText(v.AsString());
      c.text_length = v.AsString().size();
      break;
    case VMIO_OBJECT:
      if (v.AsObject()) c.object = new vmio_object{v.AsObject()};
      break;
    default:  // arrays
      Raise(kTypeMismatch);
  }
  out = c;
}

}  // namespace vmio::capi
