/* The library's C interface: plain C99, for hosts in C and for other languages' foreign-function
 * interfaces (the Python package uses it through ctypes).
 *
 * Objects are opaque handles made by vmio_create and freed by vmio_release. Every call that can
 * fail returns the automation error number (0 on success) and never lets an exception out; the
 * error's description is then vmio_error_description(), valid on the calling thread until its
 * next call into this interface. The numbers and texts are those the C++ interface raises
 * (45001 "Unable to connect to the device", 9 for a bad port index, ...); a null handle gives
 * 91 "Object variable or With block variable not set".
 *
 * Strings are UTF-8 and NUL-terminated. Strings and values the library hands out belong to the
 * caller: free a string with vmio_free and a value with vmio_value_clear.
 *
 * The ABI is stable within a major version (libvmio.so.0): functions are only ever added, and
 * vmio_value keeps its layout. As in C++, every call runs on the caller's thread, and timers
 * run only inside vmio_run_pending_events.
 *
 * Threads: an object belongs to the thread that created it. A call on it from any other thread
 * returns -2147417842 (0x8001010E) "The application called an interface that was marshalled
 * for a different thread." and changes nothing; vmio_release may come from any thread once no
 * other call is running. A host with several threads gives each its own objects. */
#ifndef VMIO_VMIO_H
#define VMIO_VMIO_H

#include <stddef.h>
#include <stdint.h>

#include "vmio/export.h"
#include "vmio/version.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct vmio_object vmio_object;

/* Automation type codes of values, ports (vmio_port_type) and their elements. */
enum {
  VMIO_EMPTY = 0,
  VMIO_I2 = 2,
  VMIO_I4 = 3,
  VMIO_R8 = 5,
  VMIO_STRING = 8,
  VMIO_OBJECT = 9,
  VMIO_BOOL = 11,
  VMIO_UI1 = 17
};

/* Port directions (vmio_port_direction). */
enum { VMIO_INPUT = 1, VMIO_OUTPUT = 2, VMIO_BIDIRECTIONAL = 3 };

/* A typed value. Set type and the one field it uses; the others are ignored. */
typedef struct vmio_value {
  int32_t type;        /* VMIO_EMPTY, VMIO_BOOL, ... */
  int32_t integer;     /* VMIO_BOOL (0 false, anything else true; handed out as 1 or 0),
                          VMIO_UI1, VMIO_I2, VMIO_I4 */
  double real;         /* VMIO_R8 */
  char* text;          /* VMIO_STRING, NUL-terminated (the library's copy when handed out) */
  size_t text_length;  /* VMIO_STRING: its bytes (it may hold NULs); 0 given in: up to the NUL */
  vmio_object* object; /* VMIO_OBJECT: a handle of its own, released by vmio_value_clear */
} vmio_value;

/* The library's version, "MAJOR.MINOR.PATCH". */
VMIO_API const char* vmio_version(void);

/* The description of the error this thread's last call returned ("" after a success). */
VMIO_API const char* vmio_error_description(void);

/* Frees a string the library handed out; null is ignored. */
VMIO_API void vmio_free(void* text);
/* Frees what a value owns (its text, its object handle) and makes it empty. */
VMIO_API void vmio_value_clear(vmio_value* value);

/* The creatable classes: count, and the programmatic ("VMIO.Axis") and short ("axis") names
 * of the one at 0-based position; null beyond the end. The texts are the library's own. */
VMIO_API int32_t vmio_class_count(void);
VMIO_API const char* vmio_class_progid(int32_t position);
VMIO_API const char* vmio_class_short_name(int32_t position);

/* Creates an object by programmatic name ("VMIO.Axis") or short name ("axis").
 * 429 "ActiveX component can't create object" for an unknown name. */
VMIO_API int32_t vmio_create(const char* name, vmio_object** object);
/* Drops the handle; the object ends when nothing else refers to it. Null is ignored. */
VMIO_API void vmio_release(vmio_object* object);

/* What an object is: a device (the vmio_port... calls apply), an enumerator (vmio_enum...),
 * or another object (reached through vmio_call and vmio_put); VMIO_NO_OBJECT for null. */
enum { VMIO_NO_OBJECT = 0, VMIO_KIND_DEVICE = 1, VMIO_KIND_ENUMERATOR = 2, VMIO_KIND_OTHER = 3 };
VMIO_API int32_t vmio_object_kind(vmio_object* object);

/* The device interface. An object that is no device answers 438. */
VMIO_API int32_t vmio_connect(vmio_object* device, const char* device_string);
VMIO_API int32_t vmio_disconnect(vmio_object* device);
VMIO_API int32_t vmio_ports(vmio_object* device, int32_t* count);
VMIO_API int32_t vmio_port_direction(vmio_object* device, int32_t index, int32_t* direction);
VMIO_API int32_t vmio_port_type(vmio_object* device, int32_t index, int32_t* type);
VMIO_API int32_t vmio_port_name(vmio_object* device, int32_t index, char** name);
VMIO_API int32_t vmio_port_value(vmio_object* device, int32_t index, vmio_value* value);
VMIO_API int32_t vmio_set_port_value(vmio_object* device, int32_t index, const vmio_value* value);

/* Any public member by name, late-bound: a method or property get (result may be null when
 * the caller wants none) and a property put (the property's indexes, then the new value).
 * 438 for a member the object does not have, 450 for the wrong number of arguments. Results
 * that are arrays are not handed out: 13. */
VMIO_API int32_t vmio_call(vmio_object* object, const char* member, const vmio_value* args, size_t count,
                           vmio_value* result);
VMIO_API int32_t vmio_put(vmio_object* object, const char* member, const vmio_value* args, size_t count);

/* Enumerators (a class that lists devices): the number of records, and a record's identifier
 * (what to pass to vmio_connect) and name by 1-based position. 9 for a position out of range;
 * an object that is no enumerator answers 438. */
VMIO_API int32_t vmio_enum_count(vmio_object* enumerator, int32_t* count);
VMIO_API int32_t vmio_enum_item(vmio_object* enumerator, int32_t position, char** id, char** name);

/* Runs this thread's due timer callbacks; and the milliseconds until the next one is due
 * (0: due now), or -1 when no timer runs, for a host that sleeps in its own poll loop. */
VMIO_API void vmio_run_pending_events(void);
VMIO_API int32_t vmio_milliseconds_until_next_event(void);

/* Diagnostics: the library's trace texts (each request's URL with the password masked, the
 * HTTP status line, the transport's own error text, the Modbus client's progress) go to the
 * handler, on the thread that made the call. Null turns the trace off (the default). The
 * handler is process-wide: install it before other threads use the library. */
typedef void (*vmio_trace_handler)(const char* text, void* context);
VMIO_API void vmio_set_trace_handler(vmio_trace_handler handler, void* context);

#ifdef __cplusplus
}
#endif

#endif
