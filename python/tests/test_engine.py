"""The engine from Python, alone and on asyncio, against a simulated fleet with dead devices."""

import asyncio
import threading

import pytest

import vmio

WRONG_THREAD = -2147417842


def add_fleet(engine, fleet, interval_ms):
    return [engine.add(vmio.Device.create(progid), device, interval_ms=interval_ms)
            for progid, device, _ in fleet.devices]


def test_the_engine_alone_keeps_live_devices_fresh_beside_dead_ones(fleet_sim):
    with vmio.Engine() as engine:
        ids = add_fleet(engine, fleet_sim, 200)
        live = {i for i, (_, _, health) in zip(ids, fleet_sim.devices) if health == "live"}
        events = []
        deadline = vmio.Engine.now() + 15000
        while vmio.Engine.now() < deadline:
            engine.run_until(vmio.Engine.now() + 100)
            events.extend(engine.events())
            states = {i: engine.state(i) for i in ids}
            if all((s is vmio.DeviceState.ONLINE) == (i in live) and (i in live or s is vmio.DeviceState.OFFLINE)
                   for i, s in states.items()):
                break
        assert states == {i: vmio.DeviceState.ONLINE if i in live else vmio.DeviceState.OFFLINE for i in ids}
        assert str(vmio.DeviceState.OFFLINE) == "offline"

        # Every live device's ports came as value events; no dead one gave a value.
        for i in ids:
            values = engine.values(i)
            reported = {e.port: e.value for e in events if e.device == i and e.kind is vmio.EventKind.VALUE}
            assert (reported == dict(enumerate(values)) and len(values) in (6, 18)) if i in live else values == []
        assert all(e.time_ms <= vmio.Engine.now() for e in events)

        # A write ends in its own event, with the port rules' error when refused.
        camera = next(i for i, (progid, _, _) in zip(ids, fleet_sim.devices) if i in live and progid == "VMIO.Axis")
        writes = {engine.write(camera, 4, True): None, engine.write(camera, 0, True): None}
        deadline = vmio.Engine.now() + 15000
        while None in writes.values() and vmio.Engine.now() < deadline:
            engine.run_until(vmio.Engine.now() + 50)
            writes.update({e.write_id: e for e in engine.events() if e.kind is vmio.EventKind.WRITE})
        ok, refused = writes.values()
        assert (ok.error, ok.port, ok.value, ok.failure) == (0, 4, True, None)
        assert (refused.error, refused.description) == (45004, "Port 1is not an output port")
        assert str(refused.failure) == "error 45004: Port 1is not an output port"

        # The engine belongs to this thread: another thread's call is refused, not a crash.
        raised = []
        other = threading.Thread(target=lambda: raised.extend(_raises(lambda: engine.state(camera))))
        other.start()
        other.join()
        assert raised == [(WRONG_THREAD,
                           "The application called an interface that was marshalled for a different thread.")]
        engine.remove(camera)
        with pytest.raises(vmio.AutomationError) as gone:
            engine.state(camera)
        assert gone.value.number == 9


def _raises(call):
    try:
        call()
    except vmio.AutomationError as e:
        return [(e.number, e.description)]
    return []


def test_asyncio_connects_reads_writes_and_follows_changes_on_one_thread(fleet_sim):
    live = [(i, progid, device) for i, (progid, device, health) in enumerate(fleet_sim.devices) if health == "live"]
    dead = [device for _, device, health in fleet_sim.devices if health != "live"]
    index, _, camera_device = next(d for d in live if d[1] == "VMIO.Axis")

    async def main():
        async with vmio.AsyncEngine() as engine:
            changes = []

            async def follow():
                async for event in engine.changes():
                    changes.append(event)

            follower = asyncio.create_task(follow())
            # The dead devices are added first; they hold nothing else back.
            for device in dead:
                engine.add(vmio.Device.create("axis"), device, interval_ms=100)
            started = vmio.Engine.now()
            camera = await asyncio.wait_for(engine.connect("axis", camera_device, interval_ms=100), 5)
            assert vmio.Engine.now() - started < 2000
            assert await engine.read(camera) == [False] * 6

            with pytest.raises(vmio.AutomationError) as refused:
                await asyncio.wait_for(engine.connect("axis", "127.0.0.1:1", interval_ms=100), 15)
            assert refused.value.number == 45001

            assert await engine.write(camera, 4, True) is True
            with pytest.raises(vmio.AutomationError) as wrong:
                await engine.write(camera, 0, True)
            assert (wrong.value.number, wrong.value.description) == (45004, "Port 1is not an output port")

            # Another host switches an input; the change comes through the iterator.
            assert fleet_sim.send("input %d 2 on" % index) == "device %d input 2 on" % index
            for _ in range(50):
                if any(e.device == camera and e.kind is vmio.EventKind.VALUE and e.port == 1 and e.value is True
                       for e in changes):
                    break
                await asyncio.sleep(0.1)
            assert (await engine.read(camera))[1] is True and (await engine.read(camera))[4] is True
            assert threading.active_count() == 1  # the library started no thread
            follower.cancel()
            return changes

    changes = asyncio.run(main())
    assert any(e.kind is vmio.EventKind.STATE and e.state is vmio.DeviceState.ONLINE for e in changes)
