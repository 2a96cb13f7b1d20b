/* The same through the C interface. */
#include <stdio.h>
#include <vmio/vmio.h>

int main(int argc, char** argv) {
  vmio_object* device = NULL;
  int32_t count = 0, i;
  if (argc != 3) return 2;
  if (vmio_create(argv[1], &device) || vmio_connect(device, argv[2]) || vmio_ports(device, &count)) {
    fprintf(stderr, "error: %s\n", vmio_error_description());
    return 1;
  }
  printf("vmio %s: %d ports\n", vmio_version(), (int)count);
  for (i = 0; i < count; ++i) {
    char* name = NULL;
    vmio_value value = {0};
    if (vmio_port_name(device, i, &name) || vmio_port_value(device, i, &value)) return 1;
    printf("%d %s = %d\n", (int)i, name, (int)value.integer);
    vmio_free(name);
  }
  vmio_release(device);
  return 0;
}
