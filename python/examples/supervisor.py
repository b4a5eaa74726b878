# SPDX-License-Identifier: MIT
"""Keeps a device busy, and comes back when the link is lost: 60 tasks under way, a stream, and broadcasts.

    python3 supervisor.py SECONDS
"""

from __future__ import annotations

import asyncio
import collections
import contextlib
import json
import sys

import kelhandler
import kelhandler.aio

ECHO = "TASK_ID_APPLICATION_DEBUG_VAL"
STREAMER = "TASK_ID_APPLICATION_DEBUG_STREAMER"

counts: collections.Counter[str] = collections.Counter()


async def ask(device: kelhandler.aio.Device) -> None:
    while True:
        try:
            await device.task(ECHO, values=(1, 2, 3), timeout=2.0, repeatable=True)
            counts["answers"] += 1
        except kelhandler.Error as error:
            counts[error.cause] += 1
            await asyncio.sleep(0.1)


async def follow(device: kelhandler.aio.Device) -> None:
    while True:
        with contextlib.suppress(kelhandler.LinkLost, kelhandler.NoAnswer, kelhandler.Refused):
            async for _ in device.stream(STREAMER, values=(100000, 10, 0)):
                counts["messages"] += 1
        await asyncio.sleep(0.1)


async def listen(device: kelhandler.aio.Device) -> None:
    async for _ in device.broadcasts():
        counts["broadcasts"] += 1


async def main(seconds: float) -> None:
    async with kelhandler.aio.connect(
        heartbeat=ECHO, heartbeat_interval=0.2, reconnect=True, on_state=lambda change: print(*change, flush=True)
    ) as device:
        workers = [follow(device), listen(device), *(ask(device) for _ in range(58))]
        with contextlib.suppress(TimeoutError):
            async with asyncio.timeout(seconds):
                await asyncio.gather(*workers)
    print(json.dumps(counts))


if __name__ == "__main__":
    asyncio.run(main(float(sys.argv[1])))
