"""The installed Python package against simulated devices run by vmio-sim."""

import importlib.metadata
import importlib.resources
import logging
import time

import pytest

import vmio


def test_a_camera_lists_reads_and_switches_its_ports(camera_sim):
    with vmio.Device.create("axis").connect(camera_sim.device) as camera:
        assert len(camera) == 6
        ports = camera.ports
        assert [p.name for p in ports[:2]] == ["Door", "Window"]
        assert ports[0].direction is vmio.Direction.INPUT and ports[0].direction == 1
        assert ports[4].direction is vmio.Direction.BIDIRECTIONAL
        assert {p.type for p in ports} == {vmio.ValueType.BOOL} == {11}
        assert [p.value for p in ports] == [False] * 6

        ports[4].value = True
        assert camera_sim.send("outputs") == "outputs: 1=on 2=off"
        camera_sim.send("input 2 on")
        time.sleep(0.6)  # past the driver's half-second cache
        assert ports[1].value is True


def test_errors_carry_the_librarys_number_and_text(camera_sim):
    with pytest.raises(vmio.AutomationError) as unknown:
        vmio.create("VMIO.Toaster")
    assert (unknown.value.number, unknown.value.description) == (429, "ActiveX component can't create object")

    with pytest.raises(TypeError, match="VMIO.LogITEnum is not a vmio.Device"):
        vmio.Device.create("logitenum")
    assert type(vmio.Enumerator.create("logitenum")) is vmio.Enumerator

    camera = vmio.create("VMIO.Axis")
    assert type(camera) is vmio.Device
    with pytest.raises(vmio.AutomationError) as early:
        len(camera)
    assert (early.value.number, early.value.description) == (45003, "Not connected")

    camera.connect(camera_sim.device)
    for port, value, number, text in [(0, True, 45004, "Port 1is not an output port"),
                                      (4, 1, 13, "Type mismatch"),
                                      (6, True, 9, "Subscript out of range")]:
        with pytest.raises(vmio.AutomationError) as raised:
            camera.port(port).value = value
        assert (raised.value.number, raised.value.description) == (number, text)
        assert str(raised.value) == "error %d: %s" % (number, text)


def test_the_context_manager_disconnects(camera_sim):
    with vmio.create("axis") as camera:
        camera.connect(camera_sim.device)
        assert len(camera) == 6
    with pytest.raises(vmio.AutomationError) as raised:
        len(camera)
    assert raised.value.number == 45003
    assert camera.port(0).direction is vmio.Direction.INPUT  # the table outlives the connection


def test_members_are_reached_by_name(camera_sim):
    camera = vmio.create("axis").connect(camera_sim.device)
    assert camera.call("PortName", 2) == "Input 3"
    assert camera.call("Ports") == 6
    camera.put("PortValue", 5, True)
    assert camera.call("PortValue", 5) is True
    with pytest.raises(vmio.AutomationError) as raised:
        camera.call("SelfDestruct")
    assert raised.value.number == 438


def test_the_trace_tells_why_a_connect_failed(guarded_camera_sim, caplog):
    authority = guarded_camera_sim.device.split("@", 1)[1]
    texts = []
    vmio.set_trace(texts.append)
    try:
        with pytest.raises(vmio.AutomationError) as raised:
            vmio.create("axis").connect("root:Wrong-Guess@" + authority)
    finally:
        vmio.set_trace(None)
    assert (raised.value.number, raised.value.description) == (45001, "Unable to connect to the device")
    trace = "\n".join(texts)
    assert "401 Unauthorized" in trace and "root:***@" in trace and "Wrong-Guess" not in trace

    caplog.set_level(logging.DEBUG, logger="vmio")
    assert vmio.trace_to_logging() is logging.getLogger("vmio")
    try:
        with pytest.raises(vmio.AutomationError):
            vmio.create("axis").connect("root:Wrong-Guess@" + authority)
    finally:
        vmio.set_trace(None)
    logged = [r.getMessage() for r in caplog.records if r.name == "vmio" and r.levelno == logging.DEBUG]
    assert any("401 Unauthorized" in text for text in logged)
    assert not any("Wrong-Guess" in text for text in logged)

    with pytest.raises(vmio.AutomationError):  # stopped: nothing more is logged
        vmio.create("axis").connect("root:Wrong-Guess@" + authority)
    assert len(caplog.records) == len(logged)


def test_objects_and_ports_say_what_they_are(guarded_camera_sim, logger_sim, monkeypatch):
    camera = vmio.create("AXIS")
    assert repr(camera) == "<vmio.Device VMIO.Axis not connected>"
    camera.connect(guarded_camera_sim.device)
    authority = guarded_camera_sim.device.split("@", 1)[1]
    assert repr(camera) == "<vmio.Device VMIO.Axis at %s>" % authority  # no credentials
    assert repr(camera.port(0)) == "<vmio.Port 0 'Front door' INPUT BOOL>"
    assert repr(camera.port(9)) == "<vmio.Port 9 (Subscript out of range)>"
    camera.disconnect()
    assert repr(camera) == "<vmio.Device VMIO.Axis not connected>"

    root, paths = logger_sim
    monkeypatch.setenv("VMIO_SYSFS_ROOT", root)
    found = vmio.create("logitenum")
    assert repr(found) == "<vmio.Enumerator VMIO.LogITEnum: 2 devices>"
    assert repr(found[0]) == "DeviceInfo(id=%r, name='LogIT Black Box 1')" % paths[0]


def test_the_installed_package_is_typed_and_matches_the_library():
    assert importlib.metadata.version("vmio") == vmio.version
    assert importlib.resources.files("vmio").joinpath("py.typed").is_file()


def test_classes_and_events():
    names = dict(vmio.classes())
    assert names["VMIO.Axis"] == "axis" and names["VMIO.ADAM"] == "adam"
    assert vmio.version.count(".") == 2
    vmio.run_pending_events()
    assert vmio.milliseconds_until_next_event() == -1


def test_enumerators_iterate_their_records(logger_sim, monkeypatch):
    root, paths = logger_sim
    monkeypatch.setenv("VMIO_SYSFS_ROOT", root)
    found = vmio.create("VMIO.LogITEnum")
    assert isinstance(found, vmio.Enumerator) and len(found) == 2
    assert list(found) == [vmio.DeviceInfo(paths[0], "LogIT Black Box 1"), vmio.DeviceInfo(paths[1], "LogIT Black Box 2")]
    assert found[-1].id == paths[1]
    with pytest.raises(IndexError):
        found[2]


def test_a_device_refuses_other_threads_and_stays_usable(camera_sim):
    import asyncio

    camera = vmio.Device.create("axis").connect(camera_sim.device)

    async def read_from_threads():
        return await asyncio.gather(*(asyncio.to_thread(lambda: camera.port(0).value) for _ in range(12)),
                                    return_exceptions=True)

    for outcome in asyncio.run(read_from_threads()):
        assert isinstance(outcome, vmio.AutomationError)
        assert (outcome.number, outcome.description) == (
            -2147417842, "The application called an interface that was marshalled for a different thread.")
    assert camera.port(0).value is False
    camera.disconnect()


def test_a_nul_in_a_device_string_is_refused_not_cut(camera_sim):
    camera = vmio.Device.create("axis")
    with pytest.raises(vmio.AutomationError) as refused:
        camera.connect(camera_sim.device + "\0ignored")
    assert refused.value.number == 45001
