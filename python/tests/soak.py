# SPDX-License-Identifier: MIT
"""Many tasks, streams and connections, and the memory that stays: python3 soak.py TASKS

Run it with KELHANDLER_RELEASE_BLOCKS=1: by default the library keeps a block for each task.
"""

from __future__ import annotations

import asyncio
import gc
import os
import resource
import sys

import kelhandler
import kelhandler.aio

VAL = "TASK_ID_APPLICATION_DEBUG_VAL"
REF = "TASK_ID_APPLICATION_DEBUG_REF"
STREAMER = "TASK_ID_APPLICATION_DEBUG_STREAMER"
PART = 1000  # tasks on each connection


def memory() -> int:
    """Bytes of memory that are in use."""
    with open("/proc/self/statm", encoding="ascii") as file:
        return int(file.read().split()[1]) * resource.getpagesize()


def in_turn() -> None:
    with kelhandler.connect(on_state=lambda change: None) as device:
        for i in range(PART - 10):
            assert device.task(VAL, values=(i, 0, 0)).values[0] == i
        for _ in range(10):
            assert len(device.task(REF, bytes(10000)).data) == 10000
        assert sum(1 for _ in device.stream(STREAMER, values=(100, 0, 0))) == 101


async def at_once() -> None:
    async with kelhandler.aio.connect(max_queued=PART) as device:
        answers = await asyncio.gather(*(device.task(VAL, values=(i, 0, 0)) for i in range(PART)))
        assert [answer.values[0] for answer in answers] == list(range(PART))
        assert len([message async for message in device.stream(STREAMER, values=(100, 0, 0))]) == 101
        device.start(VAL).cancel()


def soak(tasks: int) -> int:
    """The bytes by which memory has grown, behind the first fifth."""
    before = 0
    parts = tasks // PART
    for part in range(parts):
        if part % 2:
            in_turn()
        else:
            asyncio.run(at_once())
        if part == parts // 5:
            gc.collect()
            before = memory()
    gc.collect()
    return memory() - before


if __name__ == "__main__":
    if os.environ.get("KELHANDLER_RELEASE_BLOCKS") != "1":
        sys.exit("soak: set KELHANDLER_RELEASE_BLOCKS=1")
    grown = soak(int(sys.argv[1]))
    print(f"{sys.argv[1]} tasks; memory has grown by {grown / 1024:.0f} KB behind the first fifth of them")
    sys.exit(grown > 4 << 20)
