"""Lists a device's ports: python3 list_ports.py DEVICE [CLASS] (`vmio-sim axis` prints a DEVICE)."""
import sys

import vmio

with vmio.Device.create(sys.argv[2] if len(sys.argv) > 2 else "axis").connect(sys.argv[1]) as device:
    print(len(device), "ports")
    for port in device.ports:
        value = ("on" if port.value else "off") if port.type == vmio.ValueType.BOOL else port.value
        print(port.index, port.name, port.direction.name.lower(), value, sep="\t")
