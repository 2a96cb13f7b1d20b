"""VMIO for Python: the digital inputs, outputs and sensors of many makes of device behind one
port interface, through libvmio's C interface (no compile step).

    import vmio
    with vmio.Device.create("axis").connect("root:secret@10.0.0.5") as camera:
        for port in camera.ports:
            print(port.index, port.name, port.direction.name, port.value)
        camera.ports[4].value = True

Many devices on one thread, none waiting for another (asyncio; Engine alone has run_until):

    async with vmio.AsyncEngine() as engine:
        door = await engine.connect("axis", "10.0.0.5", interval_ms=500)
        await engine.write(door, 4, True)
        async for event in engine.changes():
            print(event.device, event.kind.name, event.port, event.value, event.state)

Failures raise vmio.AutomationError with the library's number and description. The package
loads the libvmio.so.0 installed beside it (same prefix), else the one the system's loader
finds, else /usr/local's; VMIO_LIBRARY names another file.
"""

from __future__ import annotations

import logging
from typing import Callable, Optional

from ._engine import READ, WRITE, AsyncEngine, DeviceState, Engine, Event, EventKind
from ._native import TRACE_HANDLER, lib
from ._objects import (AutomationError, Device, DeviceInfo, Direction, Enumerator, Object, Port, PortValue,
                       ValueType, classes, create)

__all__ = [
    "READ", "WRITE", "AsyncEngine", "AutomationError", "Device", "DeviceState", "Engine", "Event", "EventKind", "DeviceInfo", "Direction", "Enumerator", "Object", "Port", "PortValue",
    "ValueType", "classes", "create", "milliseconds_until_next_event", "run_pending_events", "set_trace",
    "trace_to_logging", "version",
]

#: The version of the libvmio this package runs with, "MAJOR.MINOR.PATCH".
version: str = lib.vmio_version().decode()
__version__ = version


def run_pending_events() -> None:
    """Lets this thread's due timers run (drivers that poll in the background need it)."""
    lib.vmio_run_pending_events()


def milliseconds_until_next_event() -> int:
    """Milliseconds until a timer is due (0: now), or -1 when none runs."""
    return int(lib.vmio_milliseconds_until_next_event())


_trace_callback: Optional[Callable[..., None]] = None


def set_trace(handler: Optional[Callable[[str], object]]) -> None:
    """Sends the library's trace texts (why a connect failed: each request's URL with the
    password masked, the HTTP status line, the transport's error) to handler(text), on the thread
    that made the call; None stops the trace (the default). One handler for the whole process."""
    global _trace_callback
    if handler is None:
        lib.vmio_set_trace_handler(TRACE_HANDLER(0), None)
        _trace_callback = None
        return
    deliver = handler
    callback = TRACE_HANDLER(lambda text, _: deliver(text.decode("utf-8", "replace")))
    lib.vmio_set_trace_handler(callback, None)
    _trace_callback = callback  # ctypes calls it only while a reference is kept


def trace_to_logging(level: int = logging.DEBUG) -> logging.Logger:
    """Sends the library's trace to logging.getLogger("vmio") at level (DEBUG unless given), for a
    host that configures logging; returns that logger. set_trace(None) stops it."""
    logger = logging.getLogger("vmio")
    set_trace(lambda text: logger.log(level, "%s", text))
    return logger
