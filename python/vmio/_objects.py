"""Library objects as Python objects: values converted both ways, errors raised as exceptions."""

from __future__ import annotations

import ctypes
import enum
from typing import Any, Callable, Iterator, List, NamedTuple, Optional, Tuple, Type, TypeVar, Union

from ._native import Value, lib

#: What a port, a member call or a property holds, in Python: None, bool, int, float, str or
#: another library object.
PortValue = Union[None, bool, int, float, str, "Object"]

_KIND_DEVICE, _KIND_ENUMERATOR = 1, 2


class Direction(enum.IntEnum):
    """Which way a port goes. An IntEnum, so comparing with the library's numbers still works."""

    INPUT = 1
    OUTPUT = 2
    BIDIRECTIONAL = 3


class ValueType(enum.IntEnum):
    """The automation type code of a value or port (Port.type): BOOL for switch ports, STRING for
    text ports. An IntEnum, so comparing with the codes (11, 8) still works."""

    EMPTY = 0
    I2 = 2
    I4 = 3
    R8 = 5
    STRING = 8
    OBJECT = 9
    BOOL = 11
    UI1 = 17


class AutomationError(Exception):
    """An error the library raised: its automation error number and fixed description."""

    def __init__(self, number: int, description: str) -> None:
        super().__init__(number, description)
        self.number = number
        self.description = description

    def __str__(self) -> str:
        return "error %d: %s" % (self.number, self.description)


class DeviceInfo(NamedTuple):
    """A device an enumerator found: id is what to pass to Device.connect, name what to show."""

    id: str
    name: str


def check(number: int) -> None:
    """Raises the error a library call returned, if any."""
    if number:
        raise AutomationError(number, lib.vmio_error_description().decode("utf-8", "replace"))


def _text(pointer: ctypes.c_void_p) -> str:
    """A string the library handed out, freed once read."""
    try:
        return ctypes.string_at(pointer.value).decode("utf-8", "surrogateescape") if pointer.value else ""
    finally:
        lib.vmio_free(pointer)


def _to_c(value: PortValue, keep: List[Any]) -> Value:
    """A Value for a Python value; keep holds what must outlive the call."""
    v = Value()
    if value is None:
        v.type = ValueType.EMPTY
    elif isinstance(value, bool):
        v.type, v.integer = ValueType.BOOL, int(value)
    elif isinstance(value, int) and -(2**31) <= value < 2**31:
        v.type, v.integer = ValueType.I4, value
    elif isinstance(value, (int, float)):
        v.type, v.real = ValueType.R8, float(value)
    elif isinstance(value, str):
        data = ctypes.create_string_buffer(value.encode("utf-8", "surrogateescape"))
        keep.append(data)
        v.type, v.text, v.text_length = ValueType.STRING, ctypes.addressof(data), len(data) - 1
    elif isinstance(value, Object):
        v.type, v.object = ValueType.OBJECT, value._handle.value
    else:
        raise TypeError("vmio cannot pass a %s" % type(value).__name__)
    return v


def _from_c(v: Value) -> PortValue:
    """The Python value of a Value the library filled; the Value is cleared."""
    try:
        if v.type == ValueType.BOOL:
            return bool(v.integer)
        if v.type in (ValueType.UI1, ValueType.I2, ValueType.I4):
            return int(v.integer)
        if v.type == ValueType.R8:
            return float(v.real)
        if v.type == ValueType.STRING:
            return ctypes.string_at(v.text, v.text_length).decode("utf-8", "surrogateescape")
        if v.type == ValueType.OBJECT and v.object:
            handle, v.object = v.object, None  # the wrapper takes the handle over
            return wrap(ctypes.c_void_p(handle), None)
        return None
    finally:
        lib.vmio_value_clear(ctypes.byref(v))


def _call_args(args: tuple[PortValue, ...], keep: List[Any]) -> ctypes.Array[Value]:
    return (Value * max(len(args), 1))(*[_to_c(a, keep) for a in args])


def wrap(handle: ctypes.c_void_p, class_name: Optional[str]) -> Object:
    """The Python object for a handle the caller owns, of the class its kind calls for."""
    kind = lib.vmio_object_kind(handle)
    cls = Device if kind == _KIND_DEVICE else Enumerator if kind == _KIND_ENUMERATOR else Object
    return cls(handle, class_name)


def classes() -> List[Tuple[str, str]]:
    """Every creatable class as (programmatic name, short name): ("VMIO.Axis", "axis")."""
    return [(lib.vmio_class_progid(i).decode(), lib.vmio_class_short_name(i).decode())
            for i in range(lib.vmio_class_count())]


def create(name: str) -> Object:
    """Creates an object by programmatic name ("VMIO.Axis") or short name ("axis"): a Device for
    the device classes, an Enumerator for those that list devices found on this machine."""
    handle = ctypes.c_void_p()
    check(lib.vmio_create(name.encode(), ctypes.byref(handle)))
    progid = next((p for p, short in classes() if name.lower() in (p.lower(), short.lower())), name)
    return wrap(handle, progid)


_O = TypeVar("_O", bound="Object")


class Object:
    """Any library object; its members are reached by name with call and put."""

    @classmethod
    def create(cls: Type[_O], name: str) -> _O:
        """Creates an object as create() does, typed as this class: vmio.Device.create("axis").
        Raises TypeError when the class named is not one (an enumerator is no Device)."""
        made = create(name)
        if not isinstance(made, cls):
            raise TypeError("%s is not a vmio.%s" % (made.class_name, cls.__name__))
        return made

    def __init__(self, handle: ctypes.c_void_p, class_name: Optional[str] = None) -> None:
        self._handle = handle
        #: The programmatic name it was created by ("VMIO.Axis"); None for an object a member
        #: handed out.
        self.class_name = class_name

    def __del__(self) -> None:
        handle, self._handle = getattr(self, "_handle", None), ctypes.c_void_p()
        if handle and lib is not None:
            lib.vmio_release(handle)

    def call(self, member: str, *args: PortValue) -> PortValue:
        """Calls a method or reads a property by name: obj.call("AddCommand", "READ?")."""
        keep: List[Any] = []
        values = _call_args(args, keep)
        result = Value()
        check(lib.vmio_call(self._handle, member.encode(), values, len(args), ctypes.byref(result)))
        return _from_c(result)

    def put(self, member: str, *args: PortValue) -> None:
        """Assigns a property by name: its indexes, then the new value."""
        keep: List[Any] = []
        check(lib.vmio_put(self._handle, member.encode(), _call_args(args, keep), len(args)))

    def _describe(self) -> str:
        return self.class_name or "object"

    def __repr__(self) -> str:
        return "<vmio.%s %s>" % (type(self).__name__, self._describe())


class Port:
    """One port of a device: index, name, direction, type and value (assign to switch)."""

    def __init__(self, device: Device, index: int) -> None:
        self.device = device
        self.index = index

    def _int(self, function: Callable[..., int]) -> int:
        out = ctypes.c_int32()
        check(function(self.device._handle, self.index, ctypes.byref(out)))
        return out.value

    @property
    def name(self) -> str:
        pointer = ctypes.c_void_p()
        check(lib.vmio_port_name(self.device._handle, self.index, ctypes.byref(pointer)))
        return _text(pointer)

    @property
    def direction(self) -> Direction:
        return Direction(self._int(lib.vmio_port_direction))

    @property
    def type(self) -> ValueType:
        """The type of the port's value: ValueType.BOOL for switches, ValueType.STRING for text."""
        return ValueType(self._int(lib.vmio_port_type))

    @property
    def value(self) -> PortValue:
        """Reads the port from the device (drivers cache a read for a short while)."""
        v = Value()
        check(lib.vmio_port_value(self.device._handle, self.index, ctypes.byref(v)))
        return _from_c(v)

    @value.setter
    def value(self, new_value: PortValue) -> None:
        keep: List[Any] = []
        v = _to_c(new_value, keep)
        check(lib.vmio_set_port_value(self.device._handle, self.index, ctypes.byref(v)))

    def __repr__(self) -> str:
        # From the device's port table only: a repr never talks to the device.
        try:
            return "<vmio.Port %d %r %s %s>" % (self.index, self.name, self.direction.name, self.type.name)
        except AutomationError as e:
            return "<vmio.Port %d (%s)>" % (self.index, e.description)


def _without_credentials(device: str) -> str:
    scheme, separator, rest = device.rpartition("://")
    return scheme + separator + rest.rpartition("@")[2]


class Device(Object):
    """A device: connect, then its ports. As a context manager it disconnects at the end."""

    _device: Optional[str] = None

    def connect(self, device: str) -> Device:
        """Connects to a device string ("user:password@host:port"); returns the device."""
        # With its length: a NUL inside reaches the driver, which refuses the string.
        encoded = device.encode("utf-8")
        check(lib.vmio_connect_n(self._handle, encoded, len(encoded)))
        self._device = _without_credentials(device)
        return self

    def disconnect(self) -> None:
        check(lib.vmio_disconnect(self._handle))
        self._device = None

    def __len__(self) -> int:
        out = ctypes.c_int32()
        check(lib.vmio_ports(self._handle, ctypes.byref(out)))
        return out.value

    def port(self, index: int) -> Port:
        """The port at an index, not checked until it is used (as the library does)."""
        return Port(self, index)

    @property
    def ports(self) -> List[Port]:
        return [Port(self, i) for i in range(len(self))]

    def __enter__(self) -> Device:
        return self

    def __exit__(self, *exc: object) -> None:
        self.disconnect()

    def _describe(self) -> str:
        where = "at " + self._device if self._device else "not connected"
        return "%s %s" % (self.class_name or "device", where)


class Enumerator(Object):
    """A list of devices found on this machine: DeviceInfo(id, name) records, in order."""

    def __len__(self) -> int:
        out = ctypes.c_int32()
        check(lib.vmio_enum_count(self._handle, ctypes.byref(out)))
        return out.value

    def __getitem__(self, position: int) -> DeviceInfo:
        count = len(self)
        if not -count <= position < count:
            raise IndexError(position)
        ident, name = ctypes.c_void_p(), ctypes.c_void_p()
        check(lib.vmio_enum_item(self._handle, position % count + 1, ctypes.byref(ident), ctypes.byref(name)))
        return DeviceInfo(_text(ident), _text(name))

    def __iter__(self) -> Iterator[DeviceInfo]:
        return (self[i] for i in range(len(self)))

    def _describe(self) -> str:
        count = len(self)
        return "%s: %d device%s" % (self.class_name or "enumerator", count, "" if count == 1 else "s")
