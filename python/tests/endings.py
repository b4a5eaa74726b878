# SPDX-License-Identifier: MIT
"""Interpreters that end in the midst of something, each for itself:

    python3 endings.py WAY             end in that way
    python3 endings.py ROUNDS [WAY]    so many times a new interpreter that ends, in turns in each way

What ends well has the status 0 and says nothing.
"""

from __future__ import annotations

import asyncio
import gc
import itertools
import os
import subprocess
import sys
import threading
import time
from collections.abc import Callable

import kelhandler
import kelhandler.aio
import kelhandler.testing

VAL = "TASK_ID_APPLICATION_DEBUG_VAL"
STREAMER = "TASK_ID_APPLICATION_DEBUG_STREAMER"


def in_a_stream() -> None:
    device = kelhandler.connect()
    for _ in zip(range(10), device.stream(STREAMER, values=(1000000, 0, 0))):
        pass


def with_threads_in_streams() -> None:
    device = kelhandler.connect(on_state=lambda change: None)
    streams = [device.stream(STREAMER, values=(1000000, 0, 0)) for _ in range(3)]
    streams.append(device.stream(STREAMER, values=(2, 3600000, 0)))
    has_begun = threading.Barrier(len(streams) + 1)

    def read(stream: kelhandler.Stream) -> None:
        messages = iter(stream)
        next(messages)
        has_begun.wait()
        for _ in messages:
            pass

    for stream in streams:
        threading.Thread(target=read, args=(stream,), daemon=True).start()
    has_begun.wait()


def with_threads_in_tasks() -> None:
    scenario = kelhandler.testing.stand_in({"rules": [{"task": VAL, "skip": 1, "delay": 3600000}]})
    scenario.__enter__()
    device = kelhandler.connect(timeout=3600)
    device.task(VAL)
    for _ in range(5):
        threading.Thread(target=device.task, args=(VAL,), daemon=True).start()
    while device.statistics().in_flight < 5:
        time.sleep(0.001)
    threading.excepthook = lambda args: None  # they end with Closed


def with_threads_that_go_on() -> None:
    device = kelhandler.connect()

    def work() -> None:
        while True:
            try:
                device.task(VAL)
                kelhandler.connect().close()
            except kelhandler.Error:
                pass

    for _ in range(2):
        threading.Thread(target=work, daemon=True).start()
    time.sleep(0.02)


def in_a_loop() -> None:
    async def leave() -> None:
        device = await kelhandler.aio.connect()
        async for message in device.stream(STREAMER, values=(1000000, 0, 0)):
            if message.values[0] == 10:
                break
        kept.append(device)

    kept: list[kelhandler.aio.Device] = []
    asyncio.run(leave())
    globals()["kept"] = kept


def by_exit_in_a_task() -> None:
    async def leave() -> None:
        async with kelhandler.aio.connect() as device:
            calls = [device.start(VAL) for _ in range(100)]
            await calls[0]
            sys.exit(0)

    asyncio.run(leave())


def with_a_cycle() -> None:
    device = kelhandler.connect()
    cycle: list[object] = [device, device.stream(STREAMER, values=(1000000, 0, 0)), device.broadcasts()]
    cycle.append(cycle)
    gc.disable()


def in_a_fork() -> None:
    device = kelhandler.connect()
    stream = device.stream(STREAMER, values=(1000000, 0, 0))
    child = os.fork()
    if child == 0:
        uses: list[Callable[[], object]] = [
            lambda: device.task(VAL),
            lambda: next(iter(stream)),
            device.close,
            lambda: device.state,
        ]
        for use in uses:
            try:
                use()
            except kelhandler.Closed:
                continue
            raise AssertionError("a device of the parent was used")
        try:
            kelhandler.connect()
        except RuntimeError:
            sys.exit(0)
        raise AssertionError("a child has connected")
    _, status = os.waitpid(child, 0)
    assert status == 0, status
    assert device.task(VAL, values=(7, 8, 9)).values == (7, 8, 9)


def in_a_fork_before_a_connect() -> None:
    child = os.fork()
    with kelhandler.connect() as device:
        assert device.task(VAL, values=(7, 8, 9)).values == (7, 8, 9)
    if child != 0:
        _, status = os.waitpid(child, 0)
        assert status == 0, status


WAYS: dict[str, Callable[[], None]] = {
    way.__name__: way
    for way in (
        in_a_stream,
        with_threads_in_streams,
        with_threads_in_tasks,
        with_threads_that_go_on,
        in_a_loop,
        by_exit_in_a_task,
        with_a_cycle,
        in_a_fork,
        in_a_fork_before_a_connect,
    )
}


def end(way: str) -> subprocess.CompletedProcess[str]:
    """A new interpreter that ends in that way."""
    command = [sys.executable, "-B", "-W", "ignore::ResourceWarning", __file__, way]
    return subprocess.run(command, capture_output=True, text=True, timeout=60)


def main(rounds: int, ways: list[str]) -> int:
    """The status: 0 if all have ended well."""
    for number, way in zip(range(rounds), itertools.cycle(ways)):
        run = end(way)
        if run.returncode != 0 or run.stdout or run.stderr:
            print(f"round {number}, {way}: status {run.returncode}\n{run.stdout}{run.stderr}")
            return 1
    print(f"{rounds} interpreters have ended well")
    return 0


if __name__ == "__main__":
    if sys.argv[1] in WAYS:
        WAYS[sys.argv[1]]()
    else:
        sys.exit(main(int(sys.argv[1]), sys.argv[2:] or list(WAYS)))
