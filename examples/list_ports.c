/* Lists a device's ports through the C interface: list_ports_c DEVICE [CLASS]. */
#include <stdio.h>
#include <vmio/vmio.h>

static const char* DirectionWord(int32_t direction) {
  return direction == VMIO_INPUT ? "input" : direction == VMIO_OUTPUT ? "output" : "bidirectional";
}

int main(int argc, char** argv) {
  vmio_object* device = NULL;
  int32_t count = 0;
  int32_t i;
  if (argc < 2) {
    fprintf(stderr, "usage: %s DEVICE [CLASS]\n", argv[0]);
    return 2;
  }
  /* Every call returns 0 or the error's number; vmio_error_description() tells what it was. */
  if (vmio_create(argc > 2 ? argv[2] : "axis", &device) || vmio_connect(device, argv[1]) ||
      vmio_ports(device, &count)) {
    fprintf(stderr, "error: %s\n", vmio_error_description());
    vmio_release(device);
    return 1;
  }
  printf("%d ports\n", (int)count);
  for (i = 0; i < count; ++i) {
    char* name = NULL; /* handed out: freed with vmio_free */
    int32_t direction = 0;
    vmio_value value = {0}; /* cleared with vmio_value_clear */
    if (vmio_port_name(device, i, &name) || vmio_port_direction(device, i, &direction) ||
        vmio_port_value(device, i, &value)) {
      fprintf(stderr, "error: %s\n", vmio_error_description());
      vmio_free(name);
      break;
    }
    if (value.type == VMIO_BOOL)
      printf("%d\t%s\t%s\t%s\n", (int)i, name, DirectionWord(direction), value.integer ? "on" : "off");
    else if (value.type == VMIO_STRING)
      printf("%d\t%s\t%s\t%s\n", (int)i, name, DirectionWord(direction), value.text);
    else
      printf("%d\t%s\t%s\t(type %d)\n", (int)i, name, DirectionWord(direction), (int)value.type);
    vmio_free(name);
    vmio_value_clear(&value);
  }
  vmio_disconnect(device);
  vmio_release(device);
  return i == count ? 0 : 1;
}
