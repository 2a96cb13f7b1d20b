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

/** @name The concurrent engine
 * One host thread keeps many devices fresh at once (vmio::Engine in C++). Create device
 * objects as usual (vmio_create, then any configuration such as RS232 commands), hand each to
 * vmio_engine_add with its device string, and let the engine run: it connects every device
 * concurrently, reads all of a device's ports every interval, queues writes per device, and
 * reports each value change, error, state change and write result as a vmio_engine_event. A
 * device that does not answer costs its own time-outs and nothing else.
 *
 * Drive it on its thread in one of two ways: the blocking vmio_engine_run_until (or
 * vmio_engine_run_until_idle); or from the host's own event loop: watch the descriptors the
 * engine names (vmio_engine_descriptors, and the changes told to a vmio_engine_watch_listener)
 * and call vmio_engine_ready when one is ready, and vmio_engine_run_timers once
 * vmio_engine_timeout milliseconds have passed. Take events with vmio_engine_next_event.
 *
 * An engine belongs to the thread that created it, as do the devices added to it: a call from
 * another thread returns -2147417842 and changes nothing. While a device is in an engine, a
 * blocking call on it during one of its exchanges returns 5. */
/**@{*/
/** A concurrent engine: made by vmio_engine_new, freed by vmio_engine_free. */
typedef struct vmio_engine vmio_engine;

/** What a host shows for a device (vmio_engine_state, vmio_engine_event::state). */
enum {
  VMIO_STATE_CONNECTING = 0, /**< not yet connected, and not trying for long */
  VMIO_STATE_ONLINE = 1,     /**< the last good read is recent */
  VMIO_STATE_STALE = 2,      /**< the last good read is older than stale_after_ms */
  VMIO_STATE_OFFLINE = 3     /**< a connect or read failed, or nothing good came for long */
};

/** What an event tells (vmio_engine_event::kind). */
enum {
  VMIO_EVENT_NONE = -1, /**< no event was waiting */
  VMIO_EVENT_VALUE = 0, /**< a port's value changed (or was read the first time): port, value */
  VMIO_EVENT_STATE = 1, /**< the device's state changed: state */
  VMIO_EVENT_ERROR = 2, /**< a connect or read failed: error, description (port -1 when not a port's) */
  VMIO_EVENT_WRITE = 3  /**< a queued write ended: write_id, port, value, error 0 or its failure */
};

/** What a host watches a descriptor for (vmio_engine_watch::events); both at once are 3. */
enum {
  VMIO_WATCH_READ = 1, /**< readable */
  VMIO_WATCH_WRITE = 2 /**< writable */
};

/** How the engine treats one device; zero in a field picks its default. */
typedef struct vmio_watch_options {
  int32_t interval_ms;       /**< every port is read this often (at least 10; default 1000) */
  int32_t stale_after_ms;    /**< stale when the last good read is older (default twice the interval) */
  int32_t offline_after_ms;  /**< offline when nothing good came for this long (default twice stale_after_ms) */
  int32_t max_backoff_ms;    /**< retries of a failed device start at the interval and double up to this
                                  (default 60000) */
  int32_t max_queued_writes; /**< a write beyond this many queued drops the oldest (default 64) */
} vmio_watch_options;

/** One thing that happened to a device. Its value and description belong to the caller:
 * vmio_engine_event_clear frees them. */
typedef struct vmio_engine_event {
  int32_t kind;      /**< VMIO_EVENT_VALUE, ... or VMIO_EVENT_NONE */
  int32_t device;    /**< the id vmio_engine_add gave */
  int32_t port;      /**< 0-based port index, or -1 */
  vmio_value value;  /**< the new value (VMIO_EVENT_VALUE), the value written (VMIO_EVENT_WRITE) */
  int32_t state;     /**< the device's state when it happened: VMIO_STATE_CONNECTING, ... */
  int32_t error;     /**< the automation error number, 0 for none */
  char* description; /**< its description, as the blocking call would give it ("" for none) */
  uint64_t write_id; /**< VMIO_EVENT_WRITE: what vmio_engine_write gave */
  int64_t time_ms;   /**< vmio_engine_now() when it was read or happened */
} vmio_engine_event;

/** A descriptor to watch and for what (VMIO_WATCH_READ, VMIO_WATCH_WRITE or both). */
typedef struct vmio_engine_watch {
  int fd;     /**< the descriptor */
  int events; /**< what to watch it for */
} vmio_engine_watch;

/** Told of every change to the descriptors to watch: fd and its new events, 0 when it is no
 * longer watched. Called on the engine's thread from inside its calls; it must not call the
 * engine. */
typedef void (*vmio_engine_watch_listener)(int fd, int events, void* context);
/** Called each time an event is queued; it may call only vmio_engine_next_event (and
 * vmio_engine_event_clear). */
typedef void (*vmio_engine_event_listener)(void* context);

/** "connecting", "online", "stale" or "offline"; null for any other number. */
VMIO_API const char* vmio_device_state_name(int32_t state);
/** Milliseconds on the library's monotonic clock: the time base of events and deadlines. */
VMIO_API int64_t vmio_engine_now(void);

/** Creates an engine, owned by the calling thread. */
VMIO_API int32_t vmio_engine_new(vmio_engine** engine);
/** Stops every device's exchange and frees the engine; null is ignored. Call it on the
 * engine's thread; the device handles stay the caller's to release. */
VMIO_API void vmio_engine_free(vmio_engine* engine);

/** Adds a device object (not connected yet; the engine connects it to device_string) with
 * options (null for every default) and gives its id (1, 2, ...). 13 for an object that is no
 * device, 457 for one already added, 5 for options out of range. */
VMIO_API int32_t vmio_engine_add(vmio_engine* engine, vmio_object* device, const char* device_string,
                                 const vmio_watch_options* options, int32_t* id);
/** Stops watching a device: its exchange in flight is cancelled and its queued writes end
 * without events. 9 for an unknown id. */
VMIO_API int32_t vmio_engine_remove(vmio_engine* engine, int32_t id);
/** Queues a write of value to a port and gives its write id (write_id may be null); the
 * result comes as a VMIO_EVENT_WRITE event with that id. 9 for an unknown id. */
VMIO_API int32_t vmio_engine_write(vmio_engine* engine, int32_t id, int32_t port, const vmio_value* value,
                                   uint64_t* write_id);
/** The device's state now: VMIO_STATE_CONNECTING, ... */
VMIO_API int32_t vmio_engine_state(vmio_engine* engine, int32_t id, int32_t* state);
/** The device's last read values: count is how many ports it has (0 before its first good
 * read); the first of them, up to capacity, are copied into values, each for
 * vmio_value_clear. */
VMIO_API int32_t vmio_engine_values(vmio_engine* engine, int32_t id, vmio_value* values, size_t capacity,
                                    size_t* count);

/** Takes the oldest waiting event into event (kind VMIO_EVENT_NONE when none waits). Clear it
 * with vmio_engine_event_clear before taking the next into it. */
VMIO_API int32_t vmio_engine_next_event(vmio_engine* engine, vmio_engine_event* event);
/** Frees what an event owns (its value and description); null is ignored. */
VMIO_API void vmio_engine_event_clear(vmio_engine_event* event);
/** How many events were dropped because too many waited (the oldest goes first). */
VMIO_API int32_t vmio_engine_dropped_events(vmio_engine* engine, uint64_t* count);
/** Installs the listener told each time an event is queued; null removes it. */
VMIO_API int32_t vmio_engine_set_event_listener(vmio_engine* engine, vmio_engine_event_listener listener,
                                                void* context);

/** Runs until vmio_engine_now() reaches deadline_ms. */
VMIO_API int32_t vmio_engine_run_until(vmio_engine* engine, int64_t deadline_ms);
/** Runs until no device has an exchange in flight or until deadline_ms; idle (may be null) is
 * 1 when it stopped for being idle. */
VMIO_API int32_t vmio_engine_run_until_idle(vmio_engine* engine, int64_t deadline_ms, int32_t* idle);

/** The descriptors to watch now: count is how many there are; the first of them, up to
 * capacity, are copied into watches. */
VMIO_API int32_t vmio_engine_descriptors(vmio_engine* engine, vmio_engine_watch* watches, size_t capacity,
                                         size_t* count);
/** Installs the listener told of every change to the descriptors to watch; null removes it. */
VMIO_API int32_t vmio_engine_set_watch_listener(vmio_engine* engine, vmio_engine_watch_listener listener,
                                                void* context);
/** Milliseconds until vmio_engine_run_timers must be called (0: now), -1 when no timer is set. */
VMIO_API int32_t vmio_engine_timeout(vmio_engine* engine, int64_t* milliseconds);
/** A watched descriptor is ready (VMIO_WATCH_READ, VMIO_WATCH_WRITE; both on an error). */
VMIO_API int32_t vmio_engine_ready(vmio_engine* engine, int fd, int events);
/** Runs the engine's timers that are due. */
VMIO_API int32_t vmio_engine_run_timers(vmio_engine* engine);
/**@}*/

#ifdef __cplusplus
}
#endif

#endif
