/* Scenarios written in plain C99 against vmio.h; each returns NULL when every check held, or
 * the first check that failed. The C++ harness starts the simulated devices. */
#include "capi_checks.h"

#include <stdio.h>
#include <string.h>

#include "vmio/vmio.h"

static char failure[512];

#define CHECK(cond)                                                                                                 \
  do {                                                                                                              \
    if (!(cond)) {                                                                                                  \
      snprintf(failure, sizeof failure, "line %d: %s (last error: %s)", __LINE__, #cond, vmio_error_description()); \
      return failure;                                                                                               \
    }                                                                                                               \
  } while (0)

#define CHECK_ERROR(call, number, text) CHECK((call) == (number) && strcmp(vmio_error_description(), (text)) == 0)

static vmio_value Bool(int state) {
  vmio_value v = {0};
  v.type = VMIO_BOOL;
  v.integer = state;
  return v;
}

static vmio_value I4(int32_t n) {
  vmio_value v = {0};
  v.type = VMIO_I4;
  v.integer = n;
  return v;
}

const char* CheckCameraThroughC(const char* device) {
  vmio_object* camera = NULL;
  int32_t n = 0;
  char* name = NULL;
  vmio_value value = {0};
  vmio_value args[2];

  CHECK_ERROR(vmio_create("VMIO.NoSuchThing", &camera), 429, "ActiveX component can't create object");
  CHECK(camera == NULL);
  CHECK(vmio_create("axis", &camera) == 0 && camera != NULL);
  CHECK(vmio_object_kind(camera) == VMIO_KIND_DEVICE && vmio_object_kind(NULL) == VMIO_NO_OBJECT);
  CHECK_ERROR(vmio_ports(camera, &n), 45003, "Not connected");

  {
    /* A NUL inside the string, given with its length: refused, not cut short. */
    char with_nul[256];
    const size_t length = strlen(device);
    CHECK(length + 3 < sizeof with_nul);
    memcpy(with_nul, device, length);
    memcpy(with_nul + length, "\0/x", 3);
    CHECK_ERROR(vmio_connect_n(camera, with_nul, length + 3), 45001, "Unable to connect to the device");
    CHECK(vmio_connect_n(camera, device, length) == 0);
  }
  CHECK(vmio_connect(camera, device) == 0);
  CHECK(strcmp(vmio_error_description(), "") == 0);
  CHECK(vmio_ports(camera, &n) == 0 && n == 6);
  CHECK(vmio_port_direction(camera, 0, &n) == 0 && n == VMIO_INPUT);
  CHECK(vmio_port_direction(camera, 5, &n) == 0 && n != VMIO_INPUT);
  CHECK(vmio_port_type(camera, 0, &n) == 0 && n == VMIO_BOOL);
  CHECK(vmio_port_name(camera, 1, &name) == 0 && strcmp(name, "Input 2") == 0);
  vmio_free(name);
  CHECK(vmio_port_value(camera, 0, &value) == 0 && value.type == VMIO_BOOL && value.integer == 0);

  /* Switching an output, and the faults the port rules raise. */
  value = Bool(1);
  CHECK(vmio_set_port_value(camera, 4, &value) == 0);
  CHECK(vmio_port_value(camera, 4, &value) == 0 && value.type == VMIO_BOOL && value.integer == 1);
  CHECK_ERROR(vmio_set_port_value(camera, 0, &value), 45004, "Port 1is not an output port");
  value = I4(1);
  CHECK_ERROR(vmio_set_port_value(camera, 4, &value), 13, "Type mismatch");
  CHECK_ERROR(vmio_port_direction(camera, 6, &n), 9, "Subscript out of range");
  CHECK_ERROR(vmio_port_direction(camera, -1, &n), 9, "Subscript out of range");

  /* Late-bound members, through the class's member table. */
  args[0] = I4(2);
  CHECK(vmio_call(camera, "PortName", args, 1, &value) == 0 && value.type == VMIO_STRING &&
        strcmp(value.text, "Input 3") == 0 && value.text_length == 7);
  vmio_value_clear(&value);
  CHECK(value.type == VMIO_EMPTY && value.text == NULL);
  args[0] = I4(5);
  args[1] = Bool(1);
  CHECK(vmio_put(camera, "PortValue", args, 2) == 0);
  CHECK(vmio_call(camera, "portvalue", args, 1, &value) == 0 && value.type == VMIO_BOOL && value.integer == 1);
  CHECK_ERROR(vmio_call(camera, "Reboot", NULL, 0, NULL), 438, "Object doesn't support this property or method");
  CHECK(vmio_call(camera, "Ports", args, 2, NULL) == 450);
  CHECK_ERROR(vmio_enum_count(camera, &n), 438, "Object doesn't support this property or method");

  /* A null handle or output is an argument fault, never a crash. */
  CHECK(vmio_ports(NULL, &n) == 91);
  CHECK(vmio_ports(camera, NULL) == 5);

  CHECK(vmio_disconnect(camera) == 0);
  CHECK_ERROR(vmio_ports(camera, &n), 45003, "Not connected");
  CHECK(vmio_port_direction(camera, 0, &n) == 0 && n == VMIO_INPUT);
  vmio_release(camera);
  return NULL;
}

static char trace[8192];

static void Collect(const char* text, void* context) {
  size_t used = strlen(trace);
  (void)context;
  snprintf(trace + used, sizeof trace - used, "%s\n", text);
}

const char* CheckFailureReasonsThroughC(const char* wrong_credentials, const char* closed_port, const char* secret) {
  vmio_object* camera = NULL;
  int context = 0;

  CHECK(vmio_create("VMIO.Axis", &camera) == 0);
  trace[0] = '\0';
  vmio_set_trace_handler(&Collect, &context);
  CHECK_ERROR(vmio_connect(camera, wrong_credentials), 45001, "Unable to connect to the device");
  CHECK(strstr(trace, "401 Unauthorized") != NULL);
  CHECK(strstr(trace, ":***@127.0.0.1") != NULL);
  CHECK(strstr(trace, secret) == NULL);

  trace[0] = '\0';
  CHECK_ERROR(vmio_connect(camera, closed_port), 45001, "Unable to connect to the device");
  CHECK(strstr(trace, "Connection refused") != NULL);

  /* Turned off again, the trace reaches nobody. */
  vmio_set_trace_handler(NULL, NULL);
  trace[0] = '\0';
  CHECK(vmio_connect(camera, closed_port) == 45001);
  CHECK(trace[0] == '\0');

  vmio_release(camera);
  return NULL;
}

const char* CheckEnumeratorThroughC(const char* first_path) {
  vmio_object* found = NULL;
  int32_t n = 0;
  char* id = NULL;
  char* name = NULL;

  CHECK(vmio_create("VMIO.LogITEnum", &found) == 0 && vmio_object_kind(found) == VMIO_KIND_ENUMERATOR);
  CHECK(vmio_enum_count(found, &n) == 0 && n == 2);
  CHECK(vmio_enum_item(found, 1, &id, &name) == 0);
  CHECK(strcmp(id, first_path) == 0 && strcmp(name, "LogIT Black Box 1") == 0);
  vmio_free(id);
  vmio_free(name);
  CHECK(vmio_enum_item(found, 2, NULL, &name) == 0 && strcmp(name, "LogIT Black Box 2") == 0);
  vmio_free(name);
  CHECK_ERROR(vmio_enum_item(found, 3, &id, &name), 9, "Subscript out of range");
  CHECK(vmio_ports(found, &n) == 438);
  vmio_release(found);
  return NULL;
}

const char* CheckLibraryFunctionsThroughC(void) {
  int32_t i;
  int found = 0;
  CHECK(strcmp(vmio_version(), VMIO_VERSION_STRING) == 0);
  for (i = 0; i < vmio_class_count(); ++i) {
    if (strcmp(vmio_class_progid(i), "VMIO.ADAM") == 0 && strcmp(vmio_class_short_name(i), "adam") == 0) found = 1;
  }
  CHECK(found);
  CHECK(vmio_class_progid(vmio_class_count()) == NULL && vmio_class_progid(-1) == NULL);
  /* No timer runs here. */
  vmio_run_pending_events();
  CHECK(vmio_milliseconds_until_next_event() == -1);
  return NULL;
}
