"""Keeps a whole site fresh on one thread with asyncio: python3 watch_fleet.py LIST [SECONDS]
[INTERVAL_MS], where LIST has one "CLASS DEVICE" per line (`vmio-sim fleet --list FILE` writes
one). Prints how many devices ended in each state, how long until every online one had its
values, and how often one went stale."""
import asyncio
import sys
from typing import Dict, List

import vmio


async def watch(lines: List[str], seconds: int, interval_ms: int) -> str:
    first_value: Dict[int, int] = {}
    went_stale = 0

    async def follow(engine: vmio.AsyncEngine) -> None:
        nonlocal went_stale
        async for event in engine.changes():
            if event.kind == vmio.EventKind.VALUE:
                first_value.setdefault(event.device, event.time_ms)
            if event.kind == vmio.EventKind.STATE and event.state == vmio.DeviceState.STALE:
                went_stale += 1

    async with vmio.AsyncEngine() as engine:
        follower = asyncio.create_task(follow(engine))
        await asyncio.sleep(0)  # the follower listens before the first event
        start = vmio.Engine.now()
        ids = []
        for line in lines:
            name, device = line.split(None, 1)
            ids.append(engine.add(vmio.Device.create(name), device.strip(), interval_ms=interval_ms))
        await asyncio.sleep(seconds)
        follower.cancel()
        states = [engine.engine.state(i) for i in ids]
        online = [i for i, s in zip(ids, states) if s == vmio.DeviceState.ONLINE]
        all_values = max((first_value.get(i, start) - start for i in online), default=0)
        counts = {s: states.count(s) for s in vmio.DeviceState}
        return ("devices %d: online %d, stale %d, offline %d, connecting %d; all values in %d ms; "
                "went stale %d times in %d s" % (len(ids), counts[vmio.DeviceState.ONLINE],
                                                 counts[vmio.DeviceState.STALE], counts[vmio.DeviceState.OFFLINE],
                                                 counts[vmio.DeviceState.CONNECTING], all_values, went_stale,
                                                 seconds))


def main() -> None:
    if len(sys.argv) < 2:
        sys.exit("usage: watch_fleet.py LIST [SECONDS] [INTERVAL_MS]")
    with open(sys.argv[1]) as f:
        lines = [line for line in f if line.strip() and not line.startswith("#")]
    seconds = int(sys.argv[2]) if len(sys.argv) > 2 else 5
    interval_ms = int(sys.argv[3]) if len(sys.argv) > 3 else 1000
    print(asyncio.run(watch(lines, seconds, interval_ms)))


main()
