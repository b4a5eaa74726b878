# SPDX-License-Identifier: MIT
"""Many tasks over a bad link, for some seconds: python3 chaos.py SECONDS

The device drops the link, loses answers, is late and refuses connects. Each call has to end once, and in time.
"""

from __future__ import annotations

import asyncio
import collections
import random
import sys
import time

import kelhandler
import kelhandler.aio
import kelhandler.testing

VAL = "TASK_ID_APPLICATION_DEBUG_VAL"
STREAMER = "TASK_ID_APPLICATION_DEBUG_STREAMER"
RATE = 200  # tasks a second
LATE = 0.5  # seconds behind its deadline that a call may end, on a machine that has other work

SCENARIO = {
    "rules": [
        {"task": STREAMER, "stream": {"count": 1000000, "interval": 2}},
        {"task": VAL, "delay": 1, "jitter": 20, "drop": {"probability": 0.02}},
    ],
    "broadcasts": [{"task": VAL, "at": 50, "every": 10}],
    "linkLosses": [{"at": 1500}],
    "socketRefusals": [{"skip": 1, "times": 3}, {"skip": 3, "times": 1}],
}


async def chaos(seconds: float) -> collections.Counter[str]:
    """How many calls ended in which way. Raises AssertionError for one that ended late or wrongly."""
    ends: collections.Counter[str] = collections.Counter()

    async def call(device: kelhandler.aio.Device, number: int) -> None:
        timeout = random.uniform(0.05, 1.0)
        begin = time.monotonic()
        try:
            answer = await device.task(VAL, values=(number, 1, 2), timeout=timeout, repeatable=number % 2 == 0)
            assert answer.values == (number, 1, 2)
            ends["answered"] += 1
        except kelhandler.Error as error:
            ends[error.cause] += 1
        assert time.monotonic() - begin < timeout + LATE, f"late by {time.monotonic() - begin - timeout} s"

    async def stream(device: kelhandler.aio.Device) -> None:
        while device.state is not kelhandler.State.CLOSED:
            try:
                async for _ in device.stream(STREAMER, timeout=1.0):
                    ends["stream messages"] += 1
            except (kelhandler.LinkLost, kelhandler.NoAnswer, kelhandler.Refused):
                ends["streams lost"] += 1
            except kelhandler.Closed:
                return

    async def listen(device: kelhandler.aio.Device) -> None:
        async for _ in device.broadcasts():
            ends["broadcasts"] += 1

    with kelhandler.testing.stand_in(SCENARIO):
        async with kelhandler.aio.connect(
            reconnect=True, heartbeat=VAL, heartbeat_interval=0.1, heartbeat_misses=2, first_pause=0.02
        ) as device:
            readers = [asyncio.create_task(stream(device)), asyncio.create_task(listen(device))]
            calls: list[asyncio.Task[None]] = []
            begin = time.monotonic()
            while (elapsed := time.monotonic() - begin) < seconds:
                while len(calls) < elapsed * RATE:
                    calls.append(asyncio.create_task(call(device, len(calls))))
                await asyncio.sleep(1 / RATE)
            await asyncio.gather(*calls)
            counts = device.statistics()
        await asyncio.gather(*readers)
    ends["calls"] = len(calls)
    ends["losses"] = counts.losses
    ends["ended"] = sum(ends[cause] for cause in ("answered", *kelhandler.Cause))
    assert ends["ended"] == ends["calls"]
    return ends


if __name__ == "__main__":
    print(asyncio.run(chaos(float(sys.argv[1]))))
