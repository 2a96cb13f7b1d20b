// Lists a device's ports through the C++ interface: list_ports_cpp DEVICE [CLASS].
#include <vmio/objects.h>

#include <iostream>
#include <memory>

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: " << argv[0] << " DEVICE [CLASS]\n";
    return 2;
  }
  try {
    // Every class is created by name; the device classes implement vmio::IODevice.
    auto device = std::dynamic_pointer_cast<vmio::IODevice>(vmio::CreateObject(argc > 2 ? argv[2] : "VMIO.Axis"));
    if (!device) {
      std::cerr << "not a device class\n";
      return 1;
    }
    device->Connect(argv[1]);
    const int32_t count = device->Ports();
    std::cout << count << " ports\n";
    for (int32_t i = 0; i < count; ++i) {
      const int32_t direction = device->PortDirection(i);
      const vmio::Variant value = device->PortValue(i);
      std::cout << i << '\t' << device->PortName(i) << '\t'
                << (direction == vmio::IOInput    ? "input"
                    : direction == vmio::IOOutput ? "output"
                                                  : "bidirectional")
                << '\t';
      if (value.IsBool())
        std::cout << (value.AsBool() ? "on" : "off") << '\n';
      else if (value.IsString())
        std::cout << value.AsString() << '\n';
      else
        std::cout << "(type " << value.VarType() << ")\n";
    }
    device->Disconnect();
  } catch (const vmio::AutomationError& e) {  // every failure: a number and a fixed text
    std::cerr << "error " << e.Number() << ": " << e.Description() << '\n';
    return 1;
  }
}
