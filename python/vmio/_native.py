"""The C interface of libvmio (vmio/vmio.h), declared for ctypes, and where the library is found."""

from __future__ import annotations

import ctypes
import os
import sysconfig
from pathlib import Path
from typing import Any, Iterator

SONAME = "libvmio.so.0"


class Value(ctypes.Structure):
    _fields_ = [
        ("type", ctypes.c_int32),
        ("integer", ctypes.c_int32),
        ("real", ctypes.c_double),
        ("text", ctypes.c_void_p),
        ("text_length", ctypes.c_size_t),
        ("object", ctypes.c_void_p),
    ]


class WatchOptions(ctypes.Structure):
    _fields_ = [
        ("interval_ms", ctypes.c_int32),
        ("stale_after_ms", ctypes.c_int32),
        ("offline_after_ms", ctypes.c_int32),
        ("max_backoff_ms", ctypes.c_int32),
        ("max_queued_writes", ctypes.c_int32),
    ]


class EngineEvent(ctypes.Structure):
    _fields_ = [
        ("kind", ctypes.c_int32),
        ("device", ctypes.c_int32),
        ("port", ctypes.c_int32),
        ("value", Value),
        ("state", ctypes.c_int32),
        ("error", ctypes.c_int32),
        ("description", ctypes.c_void_p),
        ("write_id", ctypes.c_uint64),
        ("time_ms", ctypes.c_int64),
    ]


class EngineWatch(ctypes.Structure):
    _fields_ = [("fd", ctypes.c_int), ("events", ctypes.c_int)]


TRACE_HANDLER = ctypes.CFUNCTYPE(None, ctypes.c_char_p, ctypes.c_void_p)
WATCH_LISTENER = ctypes.CFUNCTYPE(None, ctypes.c_int, ctypes.c_int, ctypes.c_void_p)

_h = ctypes.c_void_p
_i32 = ctypes.c_int32
_p_i32 = ctypes.POINTER(ctypes.c_int32)
_p_text = ctypes.POINTER(ctypes.c_void_p)
_p_value = ctypes.POINTER(Value)

# name: (result, arguments)
_SIGNATURES: dict[str, tuple[Any, list[Any]]] = {
    "vmio_version": (ctypes.c_char_p, []),
    "vmio_error_description": (ctypes.c_char_p, []),
    "vmio_free": (None, [ctypes.c_void_p]),
    "vmio_value_clear": (None, [_p_value]),
    "vmio_class_count": (_i32, []),
    "vmio_class_progid": (ctypes.c_char_p, [_i32]),
    "vmio_class_short_name": (ctypes.c_char_p, [_i32]),
    "vmio_create": (_i32, [ctypes.c_char_p, ctypes.POINTER(_h)]),
    "vmio_release": (None, [_h]),
    "vmio_object_kind": (_i32, [_h]),
    "vmio_connect": (_i32, [_h, ctypes.c_char_p]),
    "vmio_connect_n": (_i32, [_h, ctypes.c_char_p, ctypes.c_size_t]),
    "vmio_disconnect": (_i32, [_h]),
    "vmio_ports": (_i32, [_h, _p_i32]),
    "vmio_port_direction": (_i32, [_h, _i32, _p_i32]),
    "vmio_port_type": (_i32, [_h, _i32, _p_i32]),
    "vmio_port_name": (_i32, [_h, _i32, _p_text]),
    "vmio_port_value": (_i32, [_h, _i32, _p_value]),
    "vmio_set_port_value": (_i32, [_h, _i32, _p_value]),
    "vmio_call": (_i32, [_h, ctypes.c_char_p, _p_value, ctypes.c_size_t, _p_value]),
    "vmio_put": (_i32, [_h, ctypes.c_char_p, _p_value, ctypes.c_size_t]),
    "vmio_enum_count": (_i32, [_h, _p_i32]),
    "vmio_enum_item": (_i32, [_h, _i32, _p_text, _p_text]),
    "vmio_run_pending_events": (None, []),
    "vmio_milliseconds_until_next_event": (_i32, []),
    "vmio_set_trace_handler": (None, [TRACE_HANDLER, ctypes.c_void_p]),
    "vmio_device_state_name": (ctypes.c_char_p, [_i32]),
    "vmio_engine_now": (ctypes.c_int64, []),
    "vmio_engine_new": (_i32, [ctypes.POINTER(_h)]),
    "vmio_engine_free": (None, [_h]),
    "vmio_engine_add": (_i32, [_h, _h, ctypes.c_char_p, ctypes.POINTER(WatchOptions), _p_i32]),
    "vmio_engine_remove": (_i32, [_h, _i32]),
    "vmio_engine_write": (_i32, [_h, _i32, _i32, _p_value, ctypes.POINTER(ctypes.c_uint64)]),
    "vmio_engine_state": (_i32, [_h, _i32, _p_i32]),
    "vmio_engine_values": (_i32, [_h, _i32, _p_value, ctypes.c_size_t, ctypes.POINTER(ctypes.c_size_t)]),
    "vmio_engine_next_event": (_i32, [_h, ctypes.POINTER(EngineEvent)]),
    "vmio_engine_event_clear": (None, [ctypes.POINTER(EngineEvent)]),
    "vmio_engine_dropped_events": (_i32, [_h, ctypes.POINTER(ctypes.c_uint64)]),
    "vmio_engine_run_until": (_i32, [_h, ctypes.c_int64]),
    "vmio_engine_run_until_idle": (_i32, [_h, ctypes.c_int64, _p_i32]),
    "vmio_engine_descriptors": (_i32, [_h, ctypes.POINTER(EngineWatch), ctypes.c_size_t,
                                       ctypes.POINTER(ctypes.c_size_t)]),
    "vmio_engine_set_watch_listener": (_i32, [_h, WATCH_LISTENER, ctypes.c_void_p]),
    "vmio_engine_timeout": (_i32, [_h, ctypes.POINTER(ctypes.c_int64)]),
    "vmio_engine_ready": (_i32, [_h, ctypes.c_int, ctypes.c_int]),
    "vmio_engine_run_timers": (_i32, [_h]),
}


def _in_prefix(prefix: Path) -> Iterator[str]:
    """Where an install into prefix puts the library: lib/, or lib/<multiarch>/ under /usr."""
    multiarch = sysconfig.get_config_var("MULTIARCH")
    for libdir in ("lib", "lib/" + multiarch if multiarch else None, "lib64"):
        if libdir and (prefix / libdir / SONAME).is_file():
            yield str(prefix / libdir / SONAME)


def candidates() -> Iterator[str]:
    """The library installed in this package's own prefix (a virtual environment, /usr/local),
    then whatever the dynamic loader finds under the soname, then /usr/local, which the loader
    misses until ldconfig has run after an install there."""
    package_dir = Path(__file__).resolve().parent
    for prefix in list(package_dir.parents)[:5]:  # .../lib/python3.X/site-packages/vmio
        yield from _in_prefix(prefix)
    yield SONAME
    yield from _in_prefix(Path("/usr/local"))


def _load() -> ctypes.CDLL:
    """VMIO_LIBRARY (a path) when set, and then only that; else the first candidate that loads."""
    override = os.environ.get("VMIO_LIBRARY")
    names = [override] if override else list(candidates())
    errors = []
    for name in names:
        try:
            return ctypes.CDLL(name)
        except OSError as e:
            errors.append(str(e))
    hint = "" if override else " (install it, or set VMIO_LIBRARY to its path)"
    raise ImportError("libvmio not found%s: %s" % (hint, "; ".join(errors)))


lib = _load()
for _name, (_result, _arguments) in _SIGNATURES.items():
    _function = getattr(lib, _name)
    _function.restype = _result
    _function.argtypes = _arguments
