"""The concurrent engine: one thread keeps many devices fresh. Engine runs by itself (run_until)
or from a host's own loop; AsyncEngine puts it on asyncio's loop, with no threads."""

from __future__ import annotations

import asyncio
import ctypes
import enum
from typing import (Any, AsyncIterator, Callable, Dict, Iterator, List, NamedTuple, Optional, Set, Tuple,
                    Union)

from ._native import WATCH_LISTENER, EngineEvent, EngineWatch, Value, WatchOptions, lib
from ._objects import AutomationError, Device, PortValue, _from_c, _to_c, check

#: What a descriptor is watched for (Engine.descriptors, the watch listener, Engine.ready).
READ, WRITE = 1, 2


class DeviceState(enum.IntEnum):
    """What a host shows for a device; str() gives the library's name ("online")."""

    CONNECTING = 0
    ONLINE = 1
    STALE = 2
    OFFLINE = 3

    def __str__(self) -> str:
        return str(lib.vmio_device_state_name(self.value).decode())


class EventKind(enum.IntEnum):
    """What an Event tells."""

    VALUE = 0  #: a port's value changed (or was read the first time): port, value
    STATE = 1  #: the device's state changed: state
    ERROR = 2  #: a connect or read failed: error, description (port -1 when not a port's)
    WRITE = 3  #: a queued write ended: write_id, port, value, error 0 or its failure


class Event(NamedTuple):
    """One thing that happened to a device, with Engine.now() when it was read or happened."""

    kind: EventKind
    device: int
    port: int
    value: PortValue
    state: DeviceState
    error: int
    description: str
    write_id: int
    time_ms: int

    @property
    def failure(self) -> Optional[AutomationError]:
        """The error the event carries as an exception (None when it carries none)."""
        return AutomationError(self.error, self.description) if self.error else None


class Engine:
    """The engine on this thread, which owns it (as it does the devices added to it): another
    thread's call raises AutomationError -2147417842. Devices are created and configured as
    usual, then added; run_until lets it work, events() gives what happened."""

    def __init__(self) -> None:
        self._handle = ctypes.c_void_p()
        check(lib.vmio_engine_new(ctypes.byref(self._handle)))
        self._devices: Dict[int, Device] = {}
        self._watch_listener: Any = None  # the ctypes callback, kept while installed

    def close(self) -> None:
        """Stops every device's exchange and frees the engine; the devices stay usable."""
        handle, self._handle = getattr(self, "_handle", None), ctypes.c_void_p()
        if handle and lib is not None:
            lib.vmio_engine_free(handle)
        self._devices = {}

    def __del__(self) -> None:
        self.close()

    def __enter__(self) -> Engine:
        return self

    def __exit__(self, *exc: object) -> None:
        self.close()

    def add(self, device: Device, device_string: str, *, interval_ms: int = 1000, stale_after_ms: int = 0,
            offline_after_ms: int = 0, max_backoff_ms: int = 0, max_queued_writes: int = 0) -> int:
        """Adds a device (not connected yet: the engine connects it to device_string) and returns
        its id. Every port is read each interval_ms; zero options take the library's defaults."""
        options = WatchOptions(interval_ms, stale_after_ms, offline_after_ms, max_backoff_ms, max_queued_writes)
        ident = ctypes.c_int32()
        check(lib.vmio_engine_add(self._handle, device._handle, device_string.encode("utf-8"),
                                  ctypes.byref(options), ctypes.byref(ident)))
        self._devices[ident.value] = device
        return ident.value

    def remove(self, device_id: int) -> None:
        """Stops watching a device; its exchange in flight and its queued writes end silently."""
        check(lib.vmio_engine_remove(self._handle, device_id))
        self._devices.pop(device_id, None)

    def device(self, device_id: int) -> Device:
        """The device added as device_id."""
        return self._devices[device_id]

    def write(self, device_id: int, port: int, value: PortValue) -> int:
        """Queues a write; returns its id, which the WRITE event with its result carries."""
        keep: List[Any] = []
        c_value = _to_c(value, keep)
        write_id = ctypes.c_uint64()
        check(lib.vmio_engine_write(self._handle, device_id, port, ctypes.byref(c_value), ctypes.byref(write_id)))
        return write_id.value

    def state(self, device_id: int) -> DeviceState:
        out = ctypes.c_int32()
        check(lib.vmio_engine_state(self._handle, device_id, ctypes.byref(out)))
        return DeviceState(out.value)

    def values(self, device_id: int) -> List[PortValue]:
        """The ports' values as last read (empty before the first good read)."""
        count = ctypes.c_size_t()
        check(lib.vmio_engine_values(self._handle, device_id, None, 0, ctypes.byref(count)))
        values = (Value * max(count.value, 1))()
        check(lib.vmio_engine_values(self._handle, device_id, values, count.value, ctypes.byref(count)))
        return [_from_c(values[i]) for i in range(min(count.value, len(values)))]

    def next_event(self) -> Optional[Event]:
        """The oldest waiting event, or None."""
        c = EngineEvent()
        check(lib.vmio_engine_next_event(self._handle, ctypes.byref(c)))
        if c.kind < 0:
            return None
        try:
            description = ctypes.string_at(c.description).decode("utf-8", "replace") if c.description else ""
            value = _from_c(c.value)  # clears the value
            return Event(EventKind(c.kind), c.device, c.port, value, DeviceState(c.state), c.error, description,
                         c.write_id, c.time_ms)
        finally:
            lib.vmio_engine_event_clear(ctypes.byref(c))

    def events(self) -> Iterator[Event]:
        """Every waiting event, oldest first."""
        while (event := self.next_event()) is not None:
            yield event

    @property
    def dropped_events(self) -> int:
        """Events dropped because too many waited."""
        out = ctypes.c_uint64()
        check(lib.vmio_engine_dropped_events(self._handle, ctypes.byref(out)))
        return out.value

    @staticmethod
    def now() -> int:
        """Milliseconds on the library's monotonic clock: the time base of events and deadlines."""
        return int(lib.vmio_engine_now())

    def run_until(self, deadline_ms: int) -> None:
        """Runs until now() reaches deadline_ms."""
        check(lib.vmio_engine_run_until(self._handle, deadline_ms))

    def run_until_idle(self, deadline_ms: int) -> bool:
        """Runs until no device has an exchange in flight (True) or until deadline_ms (False)."""
        idle = ctypes.c_int32()
        check(lib.vmio_engine_run_until_idle(self._handle, deadline_ms, ctypes.byref(idle)))
        return bool(idle.value)

    # A host's own loop drives it with these.

    def descriptors(self) -> List[Tuple[int, int]]:
        """(descriptor, READ | WRITE) for every descriptor to watch now."""
        count = ctypes.c_size_t()
        check(lib.vmio_engine_descriptors(self._handle, None, 0, ctypes.byref(count)))
        watches = (EngineWatch * max(count.value, 1))()
        check(lib.vmio_engine_descriptors(self._handle, watches, count.value, ctypes.byref(count)))
        return [(watches[i].fd, watches[i].events) for i in range(min(count.value, len(watches)))]

    def set_watch_listener(self, listener: Optional[Callable[[int, int], None]]) -> None:
        """listener(fd, events) hears of every change to the descriptors to watch (events 0: no
        longer watched), from inside the engine's calls; it must not call the engine."""
        if listener is None:
            check(lib.vmio_engine_set_watch_listener(self._handle, WATCH_LISTENER(0), None))
            self._watch_listener = None
            return
        deliver = listener
        callback = WATCH_LISTENER(lambda fd, events, _: deliver(fd, events))
        check(lib.vmio_engine_set_watch_listener(self._handle, callback, None))
        self._watch_listener = callback  # ctypes calls it only while a reference is kept

    def timeout(self) -> int:
        """Milliseconds until run_timers must be called (0: now), -1 when no timer is set."""
        out = ctypes.c_int64()
        check(lib.vmio_engine_timeout(self._handle, ctypes.byref(out)))
        return out.value

    def ready(self, fd: int, events: int) -> None:
        """A watched descriptor is ready (READ, WRITE; both on an error)."""
        check(lib.vmio_engine_ready(self._handle, fd, events))

    def run_timers(self) -> None:
        check(lib.vmio_engine_run_timers(self._handle))


class AsyncEngine:
    """An Engine on the running asyncio loop: its descriptors watched with add_reader and
    add_writer, its timer set with call_at; no threads. Create it inside the loop, and use it
    only there. Its events go to the awaiting calls and to every changes() iterator."""

    def __init__(self) -> None:
        self.engine = Engine()
        self._loop = asyncio.get_running_loop()
        self._watched: Dict[int, int] = {}
        self._timer: Optional[asyncio.TimerHandle] = None
        self._timer_at = 0.0
        self._writes: Dict[int, asyncio.Future[Event]] = {}
        self._waiters: Dict[int, List[asyncio.Future[None]]] = {}
        self._errors: Dict[int, AutomationError] = {}  # each device's latest, until it reads well
        self._listeners: Set[asyncio.Queue[Event]] = set()
        self.engine.set_watch_listener(self._watch)

    def close(self) -> None:
        """Stops watching every descriptor and frees the engine; pending calls raise
        asyncio.CancelledError."""
        for fd in list(self._watched):
            self._watch(fd, 0)
        if self._timer:
            self._timer.cancel()
            self._timer = None
        for write in self._writes.values():
            write.cancel()
        for waiters in self._waiters.values():
            for waiter in waiters:
                waiter.cancel()
        self._writes.clear()
        self._waiters.clear()
        self.engine.close()

    async def __aenter__(self) -> AsyncEngine:
        return self

    async def __aexit__(self, *exc: object) -> None:
        self.close()

    def add(self, device: Device, device_string: str, **options: int) -> int:
        """Adds a device as Engine.add does, without waiting for it."""
        device_id = self.engine.add(device, device_string, **options)
        self._arm()
        return device_id

    async def connect(self, device: Union[str, Device], device_string: str, **options: int) -> int:
        """Adds a device (a Device, or a class name to create one by) and waits until it is
        online: returns its id, or raises the AutomationError its first failed connect gave
        (the engine goes on retrying it; remove it to stop). asyncio.wait_for bounds the wait."""
        made = Device.create(device) if isinstance(device, str) else device
        device_id = self.add(made, device_string, **options)
        self._errors.pop(device_id, None)
        while self.engine.state(device_id) != DeviceState.ONLINE:
            if device_id in self._errors:
                raise self._errors[device_id]
            await self._next_event_of(device_id)
        return device_id

    async def read(self, device_id: int) -> List[PortValue]:
        """The device's values as last read: at once when it is online or stale, else once it
        next reads well; raises the error of a connect or read that fails first."""
        self._errors.pop(device_id, None)
        while not (self.engine.state(device_id) in (DeviceState.ONLINE, DeviceState.STALE)
                   and (values := self.engine.values(device_id))):
            if device_id in self._errors:
                raise self._errors[device_id]
            await self._next_event_of(device_id)
        return values

    async def write(self, device_id: int, port: int, value: PortValue) -> PortValue:
        """Writes a port through the device's queue; returns the value written, or raises the
        AutomationError the write failed with."""
        write_id = self.engine.write(device_id, port, value)
        done: asyncio.Future[Event] = self._loop.create_future()
        self._writes[write_id] = done
        self._arm()
        event = await done
        if event.failure:
            raise event.failure
        return event.value

    async def changes(self) -> AsyncIterator[Event]:
        """Every event from now on, as it happens (values, states, errors, write results)."""
        queue: asyncio.Queue[Event] = asyncio.Queue()
        self._listeners.add(queue)
        try:
            while True:
                yield await queue.get()
        finally:
            self._listeners.discard(queue)

    def _next_event_of(self, device_id: int) -> asyncio.Future[None]:
        future: asyncio.Future[None] = self._loop.create_future()
        self._waiters.setdefault(device_id, []).append(future)
        return future

    def _watch(self, fd: int, events: int) -> None:
        """The engine's watch listener: the loop's readers and writers follow its interest."""
        before = self._watched.pop(fd, 0)
        if before & READ and not events & READ:
            self._loop.remove_reader(fd)
        if before & WRITE and not events & WRITE:
            self._loop.remove_writer(fd)
        if events & READ and not before & READ:
            self._loop.add_reader(fd, self._drive, self.engine.ready, fd, READ)
        if events & WRITE and not before & WRITE:
            self._loop.add_writer(fd, self._drive, self.engine.ready, fd, WRITE)
        if events:
            self._watched[fd] = events

    def _drive(self, call: Callable[..., None], *args: int) -> None:
        call(*args)
        self._dispatch()
        self._arm()

    def _on_timer(self) -> None:
        self._timer = None
        self._drive(self.engine.run_timers)

    def _arm(self) -> None:
        """One loop timer at the engine's next deadline (kept when that has not moved)."""
        milliseconds = self.engine.timeout()
        at = self._loop.time() + milliseconds / 1000
        if self._timer and milliseconds >= 0 and abs(at - self._timer_at) < 0.001:
            return
        if self._timer:
            self._timer.cancel()
            self._timer = None
        if milliseconds >= 0:
            self._timer, self._timer_at = self._loop.call_at(at, self._on_timer), at

    def _dispatch(self) -> None:
        for event in self.engine.events():
            if event.kind == EventKind.ERROR:
                self._errors[event.device] = AutomationError(event.error, event.description)
            if event.kind == EventKind.WRITE:
                done = self._writes.pop(event.write_id, None)
                if done and not done.done():
                    done.set_result(event)
            for waiter in self._waiters.pop(event.device, []):
                if not waiter.done():
                    waiter.set_result(None)
            for queue in self._listeners:
                queue.put_nowait(event)
