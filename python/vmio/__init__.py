"""VMIO for Python: the digital inputs, outputs and sensors of many makes of device behind one
port interface, through libvmio's C interface (no compile step).

    import vmio
    with vmio.create("axis") as camera:
        camera.connect("root:secret@10.0.0.5")
        for port in camera.ports:
            print(port.index, port.name, port.direction.name, port.value)
        camera.ports[4].value = True

Failures raise vmio.AutomationError with the library's number and description.
"""

import ctypes
import enum
from collections import namedtuple

from ._native import TRACE_HANDLER, Value, lib

__all__ = [
    "AutomationError", "Device", "DeviceInfo", "Direction", "Enumerator", "Object", "Port",
    "classes", "create", "milliseconds_until_next_event", "run_pending_events", "set_trace",
    "version",
]

_EMPTY, _I2, _I4, _R8, _STRING, _OBJECT, _BOOL, _UI1 = 0, 2, 3, 5, 8, 9, 11, 17
_KIND_DEVICE, _KIND_ENUMERATOR = 1, 2


class AutomationError(Exception):
    """An error the library raised: its automation error number and fixed description."""

    def __init__(self, number, description):
        super().__init__(number, description)
        self.number = number
        self.description = description

    def __str__(self):
        return "error %d: %s" % (self.number, self.description)


class Direction(enum.IntEnum):
    INPUT = 1
    OUTPUT = 2
    BIDIRECTIONAL = 3


DeviceInfo = namedtuple("DeviceInfo", "id name")


def _check(number):
    if number:
        raise AutomationError(number, lib.vmio_error_description().decode("utf-8", "replace"))


def _text(pointer):
    """A string the library handed out, freed once read."""
    try:
        return ctypes.string_at(pointer).decode("utf-8", "surrogateescape")
    finally:
        lib.vmio_free(pointer)


def _to_c(value, keep):
    """A Value for a Python value; keep holds what must outlive the call."""
    v = Value()
    if value is None:
        v.type = _EMPTY
    elif isinstance(value, bool):
        v.type, v.integer = _BOOL, int(value)
    elif isinstance(value, int) and -2**31 <= value < 2**31:
        v.type, v.integer = _I4, value
    elif isinstance(value, (int, float)):
        v.type, v.real = _R8, float(value)
    elif isinstance(value, str):
        data = ctypes.create_string_buffer(value.encode("utf-8", "surrogateescape"))
        keep.append(data)
        v.type, v.text, v.text_length = _STRING, ctypes.addressof(data), len(data) - 1
    elif isinstance(value, Object):
        v.type, v.object = _OBJECT, value._handle.value
    else:
        raise TypeError("vmio cannot pass a %s" % type(value).__name__)
    return v


def _from_c(v):
    """The Python value of a Value the library filled; the Value is cleared."""
    try:
        if v.type == _BOOL:
            return bool(v.integer)
        if v.type in (_UI1, _I2, _I4):
            return v.integer
        if v.type == _R8:
            return v.real
        if v.type == _STRING:
            return ctypes.string_at(v.text, v.text_length).decode("utf-8", "surrogateescape")
        if v.type == _OBJECT and v.object:
            handle, v.object = v.object, None  # the wrapper takes the handle over
            return _wrap(ctypes.c_void_p(handle))
        return None
    finally:
        lib.vmio_value_clear(ctypes.byref(v))


def _wrap(handle):
    kind = lib.vmio_object_kind(handle)
    cls = Device if kind == _KIND_DEVICE else Enumerator if kind == _KIND_ENUMERATOR else Object
    return cls(handle)


class Object:
    """Any library object; its members are reached by name with call and put."""

    def __init__(self, handle):
        self._handle = handle

    def __del__(self):
        handle, self._handle = getattr(self, "_handle", None), None
        if handle and lib is not None:
            lib.vmio_release(handle)

    def call(self, member, *args):
        """Calls a method or reads a property by name: obj.call("AddCommand", "READ?")."""
        keep = []
        values = (Value * max(len(args), 1))(*[_to_c(a, keep) for a in args])
        result = Value()
        _check(lib.vmio_call(self._handle, member.encode(), values, len(args), ctypes.byref(result)))
        return _from_c(result)

    def put(self, member, *args):
        """Assigns a property by name: its indexes, then the new value."""
        keep = []
        values = (Value * max(len(args), 1))(*[_to_c(a, keep) for a in args])
        _check(lib.vmio_put(self._handle, member.encode(), values, len(args)))


class Port:
    """One port of a device: index, name, direction, type and value (assign to switch)."""

    def __init__(self, device, index):
        self.device = device
        self.index = index

    def _int(self, function):
        out = ctypes.c_int32()
        _check(function(self.device._handle, self.index, ctypes.byref(out)))
        return out.value

    @property
    def name(self):
        pointer = ctypes.c_void_p()
        _check(lib.vmio_port_name(self.device._handle, self.index, ctypes.byref(pointer)))
        return _text(pointer)

    @property
    def direction(self):
        return Direction(self._int(lib.vmio_port_direction))

    @property
    def type(self):
        """The automation type code of the value (11 Boolean, 8 string)."""
        return self._int(lib.vmio_port_type)

    @property
    def value(self):
        v = Value()
        _check(lib.vmio_port_value(self.device._handle, self.index, ctypes.byref(v)))
        return _from_c(v)

    @value.setter
    def value(self, new_value):
        keep = []
        v = _to_c(new_value, keep)
        _check(lib.vmio_set_port_value(self.device._handle, self.index, ctypes.byref(v)))

    def __repr__(self):
        return "<vmio.Port %d>" % self.index


class Device(Object):
    """A device: connect, then its ports. As a context manager it disconnects at the end."""

    def connect(self, device):
        """Connects to a device string ("user:password@host:port"); returns the device."""
        _check(lib.vmio_connect(self._handle, device.encode("utf-8")))
        return self

    def disconnect(self):
        _check(lib.vmio_disconnect(self._handle))

    def __len__(self):
        out = ctypes.c_int32()
        _check(lib.vmio_ports(self._handle, ctypes.byref(out)))
        return out.value

    def port(self, index):
        """The port at an index, not checked until it is used (as the library does)."""
        return Port(self, index)

    @property
    def ports(self):
        return [Port(self, i) for i in range(len(self))]

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.disconnect()
        return False


class Enumerator(Object):
    """A list of devices found on this machine: DeviceInfo(id, name) records, in order."""

    def __len__(self):
        out = ctypes.c_int32()
        _check(lib.vmio_enum_count(self._handle, ctypes.byref(out)))
        return out.value

    def __getitem__(self, position):
        if not -len(self) <= position < len(self):
            raise IndexError(position)
        ident, name = ctypes.c_void_p(), ctypes.c_void_p()
        _check(lib.vmio_enum_item(self._handle, position % len(self) + 1, ctypes.byref(ident), ctypes.byref(name)))
        return DeviceInfo(_text(ident), _text(name))

    def __iter__(self):
        return (self[i] for i in range(len(self)))


def create(name):
    """Creates an object by programmatic name ("VMIO.Axis") or short name ("axis")."""
    handle = ctypes.c_void_p()
    _check(lib.vmio_create(name.encode(), ctypes.byref(handle)))
    return _wrap(handle)


def classes():
    """Every creatable class as (programmatic name, short name)."""
    return [(lib.vmio_class_progid(i).decode(), lib.vmio_class_short_name(i).decode())
            for i in range(lib.vmio_class_count())]


def run_pending_events():
    """Lets this thread's due timers run (drivers that poll in the background need it)."""
    lib.vmio_run_pending_events()


def milliseconds_until_next_event():
    """Milliseconds until a timer is due (0: now), or -1 when none runs."""
    return lib.vmio_milliseconds_until_next_event()


_trace_callback = None


def set_trace(handler):
    """Sends the library's trace texts (why a connect failed) to handler(text); None stops."""
    global _trace_callback
    if handler is None:
        lib.vmio_set_trace_handler(TRACE_HANDLER(), None)
        _trace_callback = None
        return
    _trace_callback = TRACE_HANDLER(lambda text, _: handler(text.decode("utf-8", "replace")))
    lib.vmio_set_trace_handler(_trace_callback, None)


version = lib.vmio_version().decode()
__version__ = version
