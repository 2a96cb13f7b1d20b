// The C interface over the C++ one: handles hold shared references, every call catches what
// the C++ side raises and turns it into a number and this thread's description (c_support.h).
#include <cstdlib>
#include <memory>
#include <string>

#include "capi/c_support.h"
#include "vmio/enumerator.h"
#include "vmio/error.h"
#include "vmio/events.h"
#include "vmio/objects.h"
#include "vmio/trace.h"
#include "vmio/version.h"
#include "vmio/vmio.h"

namespace {

using vmio::Variant;
using vmio::capi::CopyText;
using vmio::capi::FromC;
using vmio::capi::Guard;
using vmio::capi::ObjectOf;
using vmio::capi::Require;
using vmio::capi::ToC;

template <class T>
T& As(vmio_object* handle) {
  auto* typed = dynamic_cast<T*>(&ObjectOf(handle));
  if (!typed) vmio::Raise(vmio::kMemberNotSupported);
  return *typed;
}

}  // namespace

extern "C" {

const char* vmio_version(void) { return vmio::Version(); }

const char* vmio_error_description(void) { return vmio::capi::Description().c_str(); }

void vmio_free(void* text) { std::free(text); }

void vmio_value_clear(vmio_value* value) {
  if (!value) return;
  std::free(value->text);
  delete value->object;
  *value = vmio_value{};
}

int32_t vmio_class_count(void) { return static_cast<int32_t>(vmio::Classes().size()); }

const char* vmio_class_progid(int32_t position) {
  const auto classes = vmio::Classes();
  return position >= 0 && static_cast<size_t>(position) < classes.size() ? classes[position].progid.data() : nullptr;
}

const char* vmio_class_short_name(int32_t position) {
  const auto classes = vmio::Classes();
  return position >= 0 && static_cast<size_t>(position) < classes.size() ? classes[position].short_name.data()
                                                                         : nullptr;
}

int32_t vmio_create(const char* name, vmio_object** object) {
  return Guard([&] {
    Require(object);
    *object = nullptr;
    const vmio::ClassInfo* cls = name ? vmio::FindClass(name) : nullptr;
    if (!cls) vmio::Raise(vmio::kCannotCreateObject);
    *object = new vmio_object{cls->create()};
  });
}

void vmio_release(vmio_object* object) { delete object; }

int32_t vmio_object_kind(vmio_object* object) {
  if (!object || !object->object) return VMIO_NO_OBJECT;
  if (dynamic_cast<vmio::IODevice*>(object->object.get())) return VMIO_KIND_DEVICE;
  if (dynamic_cast<vmio::IODeviceEnumerator*>(object->object.get())) return VMIO_KIND_ENUMERATOR;
  return VMIO_KIND_OTHER;
}

int32_t vmio_connect(vmio_object* device, const char* device_string) {
  return Guard([&] {
    auto& io = As<vmio::IODevice>(device);
    Require(device_string);
    io.Connect(device_string);
  });
}

int32_t vmio_connect_n(vmio_object* device, const char* device_string, size_t length) {
  return Guard([&] {
    auto& io = As<vmio::IODevice>(device);
    if (length) Require(device_string);
    io.Connect(std::string(device_string ? device_string : "", length));
  });
}

int32_t vmio_disconnect(vmio_object* device) {
  return Guard([&] { As<vmio::IODevice>(device).Disconnect(); });
}

int32_t vmio_ports(vmio_object* device, int32_t* count) {
  return Guard([&] {
    auto& io = As<vmio::IODevice>(device);
    Require(count);
    *count = io.Ports();
  });
}

int32_t vmio_port_direction(vmio_object* device, int32_t index, int32_t* direction) {
  return Guard([&] {
    auto& io = As<vmio::IODevice>(device);
    Require(direction);
    *direction = io.PortDirection(index);
  });
}

int32_t vmio_port_type(vmio_object* device, int32_t index, int32_t* type) {
  return Guard([&] {
    auto& io = As<vmio::IODevice>(device);
    Require(type);
    *type = io.PortType(index);
  });
}

int32_t vmio_port_name(vmio_object* device, int32_t index, char** name) {
  return Guard([&] {
    auto& io = As<vmio::IODevice>(device);
    Require(name);
    *name = nullptr;
    *name = CopyText(io.PortName(index));
  });
}

int32_t vmio_port_value(vmio_object* device, int32_t index, vmio_value* value) {
  return Guard([&] {
    auto& io = As<vmio::IODevice>(device);
    Require(value);
    *value = vmio_value{};
    ToC(io.PortValue(index), *value);
  });
}

int32_t vmio_set_port_value(vmio_object* device, int32_t index, const vmio_value* value) {
  return Guard([&] {
    auto& io = As<vmio::IODevice>(device);
    Require(value);
    io.PortValue(index, FromC(*value));
  });
}

int32_t vmio_call(vmio_object* object, const char* member, const vmio_value* args, size_t count, vmio_value* result) {
  return Guard([&] {
    vmio::Object& target = ObjectOf(object);
    Require(member);
    if (result) *result = vmio_value{};
    const Variant answer = target.Call(member, FromC(args, count));
    if (result) ToC(answer, *result);
  });
}

int32_t vmio_put(vmio_object* object, const char* member, const vmio_value* args, size_t count) {
  return Guard([&] {
    vmio::Object& target = ObjectOf(object);
    Require(member);
    target.Put(member, FromC(args, count));
  });
}

int32_t vmio_enum_count(vmio_object* enumerator, int32_t* count) {
  return Guard([&] {
    auto& list = As<vmio::IODeviceEnumerator>(enumerator);
    Require(count);
    *count = list.Count();
  });
}

int32_t vmio_enum_item(vmio_object* enumerator, int32_t position, char** id, char** name) {
  return Guard([&] {
    auto& list = As<vmio::IODeviceEnumerator>(enumerator);
    const auto record = list.Item(Variant(position));
    if (id) *id = nullptr;
    if (name) *name = nullptr;
    std::unique_ptr<char, decltype(&std::free)> id_copy(CopyText(record->ID()), &std::free);
    std::unique_ptr<char, decltype(&std::free)> name_copy(CopyText(record->Name()), &std::free);
    if (id) *id = id_copy.release();
    if (name) *name = name_copy.release();
  });
}

void vmio_run_pending_events(void) {
  Guard([] { vmio::RunPendingEvents(); });
}

int32_t vmio_milliseconds_until_next_event(void) {
  int32_t ms = -1;
  Guard([&] { ms = vmio::MillisecondsUntilNextEvent(); });
  return ms;
}

void vmio_set_trace_handler(vmio_trace_handler handler, void* context) {
  Guard([&] {
    if (!handler) {
      vmio::SetTraceHandler({});
      return;
    }
    vmio::SetTraceHandler([handler, context](std::string_view text) {
      const std::string line(text);
      handler(line.c_str(), context);
    });
  });
}

}  // extern "C"
