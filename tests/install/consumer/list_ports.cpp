// Lists a device's ports: what a host outside the tree writes against the installed library.
#include <vmio/objects.h>
#include <vmio/version.h>

#include <iostream>

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  try {
    auto device = std::dynamic_pointer_cast<vmio::IODevice>(vmio::CreateObject(argv[1]));
    device->Connect(argv[2]);
    std::cout << "vmio " << vmio::Version() << ": " << device->Ports() << " ports\n";
    for (int32_t i = 0; i < device->Ports(); ++i)
      std::cout << i << " " << device->PortName(i) << " = " << device->PortValue(i).AsBool() << "\n";
    device->Disconnect();
  } catch (const vmio::AutomationError& e) {
    std::cerr << "error " << e.Number() << ": " << e.Description() << "\n";
    return 1;
  }
}
