/** @file
 * The library's C interface: plain C99, for hosts in C and for other languages' foreign-function
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

/** An object the library made: a handle from vmio_create, freed by vmio_release. */
typedef struct vmio_object vmio_object;

/** Automation type codes of values, ports (vmio_port_type) and their elements. */
enum {
  VMIO_EMPTY = 0,  /**< no value */
  VMIO_I2 = 2,     /**< 16-bit integer, in vmio_value::integer */
  VMIO_I4 = 3,     /**< 32-bit integer, in vmio_value::integer */
  VMIO_R8 = 5,     /**< double, in vmio_value::real */
  VMIO_STRING = 8, /**< text, in vmio_value::text */
  VMIO_OBJECT = 9, /**< an object, in vmio_value::object */
  VMIO_BOOL = 11,  /**< Boolean, in vmio_value::integer */
  VMIO_UI1 = 17    /**< byte, in vmio_value::integer */
};

/** Port directions (vmio_port_direction). */
enum {
  VMIO_INPUT = 1,        /**< read only */
  VMIO_OUTPUT = 2,       /**< can be switched */
  VMIO_BIDIRECTIONAL = 3 /**< read and written */
};

/** A typed value. Set type and the one field it uses; the others are ignored. */
typedef struct vmio_value {
  int32_t type;        /**< VMIO_EMPTY, VMIO_BOOL, ... */
  int32_t integer;     /**< VMIO_BOOL (0 false, anything else true; handed out as 1 or 0),
                            VMIO_UI1, VMIO_I2, VMIO_I4 */
  double real;         /**< VMIO_R8 */
  char* text;          /**< VMIO_STRING, NUL-terminated (the library's copy when handed out) */
  size_t text_length;  /**< VMIO_STRING: its bytes (it may hold NULs); 0 given in: up to the NUL */
  vmio_object* object; /**< VMIO_OBJECT: a handle of its own, released by vmio_value_clear */
} vmio_value;

/** The library's version, "MAJOR.MINOR.PATCH". */
VMIO_API const char* vmio_version(void);

/** The description of the error this thread's last call returned ("" after a success). */
VMIO_API const char* vmio_error_description(void);

/** Frees a string the library handed out; null is ignored. */
VMIO_API void vmio_free(void* text);
/** Frees what a value owns (its text, its object handle) and makes it empty. */
VMIO_API void vmio_value_clear(vmio_value* value);

/** @name Creatable classes
 * The creatable classes: count, and the programmatic ("VMIO.Axis") and short ("axis") names
 * of the one at 0-based position; null beyond the end. The texts are the library's own. */
/**@{*/
/** The number of creatable classes. */
VMIO_API int32_t vmio_class_count(void);
/** The programmatic name ("VMIO.Axis") of the class at a position; null beyond the end. */
VMIO_API const char* vmio_class_progid(int32_t position);
/** The short name ("axis") of the class at a position; null beyond the end. */
VMIO_API const char* vmio_class_short_name(int32_t position);
/**@}*/

/** Creates an object by programmatic name ("VMIO.Axis") or short name ("axis").
 * 429 "ActiveX component can't create object" for an unknown name. */
VMIO_API int32_t vmio_create(const char* name, vmio_object** object);
/** Drops the handle; the object ends when nothing else refers to it. Null is ignored. */
VMIO_API void vmio_release(vmio_object* object);

/** What an object is (vmio_object_kind). */
enum {
  VMIO_NO_OBJECT = 0,       /**< a null handle */
  VMIO_KIND_DEVICE = 1,     /**< a device: the vmio_port... calls apply */
  VMIO_KIND_ENUMERATOR = 2, /**< an enumerator: vmio_enum_count and vmio_enum_item apply */
  VMIO_KIND_OTHER = 3       /**< another object, reached through vmio_call and vmio_put */
};
/** What an object is: a device (the vmio_port... calls apply), an enumerator (vmio_enum...),
 * or another object (reached through vmio_call and vmio_put); VMIO_NO_OBJECT for null. */
VMIO_API int32_t vmio_object_kind(vmio_object* object);

/** @name The device interface
 * The members of vmio::IODevice, with ports at 0-based indexes. An object that is no device
 * answers 438. */
/**@{*/
/** Connects to a device string (vmio::IODevice::Connect). */
VMIO_API int32_t vmio_connect(vmio_object* device, const char* device_string);
/** Connects to a device string of length bytes, which may hold NUL bytes: the driver refuses
 * such a string with its own connect error, where a NUL-terminated one would be cut short
 * silently. For foreign-function interfaces whose strings carry a length. */
VMIO_API int32_t vmio_connect_n(vmio_object* device, const char* device_string, size_t length);
/** Marks the device unconnected; its port table stays. */
VMIO_API int32_t vmio_disconnect(vmio_object* device);
/** The number of ports; 45003 when not connected. */
VMIO_API int32_t vmio_ports(vmio_object* device, int32_t* count);
/** The port's direction: VMIO_INPUT, VMIO_OUTPUT or VMIO_BIDIRECTIONAL. */
VMIO_API int32_t vmio_port_direction(vmio_object* device, int32_t index, int32_t* direction);
/** The type code of the port's value (VMIO_BOOL for switches, VMIO_STRING for text). */
VMIO_API int32_t vmio_port_type(vmio_object* device, int32_t index, int32_t* type);
/** The port's name, a string for vmio_free. */
VMIO_API int32_t vmio_port_name(vmio_object* device, int32_t index, char** name);
/** Reads the port's value from the device into value, for vmio_value_clear. */
VMIO_API int32_t vmio_port_value(vmio_object* device, int32_t index, vmio_value* value);
/** Writes the port (switches an output); 45004 for a port that is no output. */
VMIO_API int32_t vmio_set_port_value(vmio_object* device, int32_t index, const vmio_value* value);
/**@}*/

/** @name Members by name
 * Any public member by name, late-bound: a method or property get (result may be null when
 * the caller wants none) and a property put (the property's indexes, then the new value).
 * 438 for a member the object does not have, 450 for the wrong number of arguments. Results
 * that are arrays are not handed out: 13. */
/**@{*/
/** Calls a method or reads a property: vmio_call(rs232, "AddCommand", args, 1, NULL). */
VMIO_API int32_t vmio_call(vmio_object* object, const char* member, const vmio_value* args, size_t count,
                           vmio_value* result);
/** Assigns a property: args holds its indexes, then the new value. */
VMIO_API int32_t vmio_put(vmio_object* object, const char* member, const vmio_value* args, size_t count);
/**@}*/

/** @name Enumerators
 * Enumerators (a class that lists devices): the number of records, and a record's identifier
 * (what to pass to vmio_connect) and name by 1-based position. 9 for a position out of range;
 * an object that is no enumerator answers 438. */
/**@{*/
/** The number of records. */
VMIO_API int32_t vmio_enum_count(vmio_object* enumerator, int32_t* count);
/** The identifier and name of the record at a 1-based position, strings for vmio_free. */
VMIO_API int32_t vmio_enum_item(vmio_object* enumerator, int32_t position, char** id, char** name);
/**@}*/

/** @name Timers
 * Runs this thread's due timer callbacks; and the milliseconds until the next one is due
 * (0: due now), or -1 when no timer runs, for a host that sleeps in its own poll loop. */
/**@{*/
/** Runs this thread's due timer callbacks. */
VMIO_API void vmio_run_pending_events(void);
/** Milliseconds until the next timer is due (0: due now), or -1 when no timer runs. */
VMIO_API int32_t vmio_milliseconds_until_next_event(void);
/**@}*/

/** @name Diagnostics
 * The library's trace texts (each request's URL with the password masked, the
 * HTTP status line, the transport's own error text, the Modbus client's progress) go to the
 * handler, on the thread that made the call. Null turns the trace off (the default). The
 * handler is process-wide: install it before other threads use the library. */
/**@{*/
/** Receives one trace text (valid during the call) and the context given with it. */
typedef void (*vmio_trace_handler)(const char* text, void* context);
/** Installs the trace handler, or turns the trace off with null. */
VMIO_API void vmio_set_trace_handler(vmio_trace_handler handler, void* context);
/**@}*/

#ifdef __cplusplus
}
#endif

#endif
