#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""What a task or a message costs from Python, beside the bare calls by ctypes in the same run.

    PYTHONPATH=build/release/python python3 bench/python_bench.py [SECONDS]

Each figure is the best of some rounds of so many seconds (1). Run it by `./run bench python`.
"""

from __future__ import annotations

import asyncio
import ctypes
import sys
import threading
import time
from collections.abc import Callable

import kelhandler
import kelhandler.aio
import kelhandler.testing

VAL = "TASK_ID_APPLICATION_DEBUG_VAL"
STREAMER = "TASK_ID_APPLICATION_DEBUG_STREAMER"
SECONDS = float(sys.argv[1]) if len(sys.argv) > 1 else 1.0
ROUNDS = 3
IN_FLIGHT = 60  # a connection has 64 numbers, of which each is free again only shortly after its answer
MESSAGES = 200000

u32, u64 = ctypes.c_uint32, ctypes.c_uint64
OnAnswer = ctypes.CFUNCTYPE(None, u32, u32, u32, u32, ctypes.c_void_p, u32, u32)
OnBroadcast = ctypes.CFUNCTYPE(None, ctypes.c_void_p, u32, ctypes.c_void_p, u32, u32)
OnMessage = ctypes.CFUNCTYPE(None, u32, u32, u32, u32, u32, ctypes.c_void_p, u32, u32)


def rate(run: Callable[[float], int]) -> float:
    """The best rate of some rounds. `run` is given when to end, and returns how many there were."""
    best = 0.0
    for _ in range(ROUNDS):
        begin = time.perf_counter()
        count = run(begin + SECONDS)
        best = max(best, count / (time.perf_counter() - begin))
    return best


def in_turn(device: kelhandler.Device) -> float:
    def run(end: float) -> int:
        count = 0
        while time.perf_counter() < end:
            device.task(VAL, values=(1, 2, 3))
            count += 1
        return count

    return rate(run)


def at_once(device: kelhandler.Device) -> float:
    def run(end: float) -> int:
        calls = [device.start(VAL, values=(1, 2, 3)) for _ in range(IN_FLIGHT)]
        count = 0
        while time.perf_counter() < end:
            slot = count % IN_FLIGHT
            calls[slot].result()
            calls[slot] = device.start(VAL, values=(1, 2, 3))
            count += 1
        for call in calls:
            call.result()
        return count + IN_FLIGHT

    return rate(run)


async def at_once_in_a_loop(device: kelhandler.aio.Device) -> float:
    async def work(end: float) -> int:
        count = 0
        while time.perf_counter() < end:
            await device.task(VAL, values=(1, 2, 3))
            count += 1
        return count

    best = 0.0
    for _ in range(ROUNDS):
        begin = time.perf_counter()
        counts = await asyncio.gather(*(work(begin + SECONDS) for _ in range(IN_FLIGHT)))
        best = max(best, sum(counts) / (time.perf_counter() - begin))
    return best


def messages(device: kelhandler.Device) -> float:
    def run(_: float) -> int:
        with device.stream(STREAMER, values=(MESSAGES, 0, 0), limit=MESSAGES) as stream:
            return sum(len(batch) for batch in stream.batches())

    return rate(run)


async def messages_in_a_loop(device: kelhandler.aio.Device) -> tuple[float, float]:
    one_by_one = in_batches = 0.0
    for _ in range(ROUNDS):
        begin = time.perf_counter()
        count = 0
        async for _ in device.stream(STREAMER, values=(MESSAGES, 0, 0), limit=MESSAGES):
            count += 1
        one_by_one = max(one_by_one, count / (time.perf_counter() - begin))
        begin = time.perf_counter()
        count = 0
        async for batch in device.stream(STREAMER, values=(MESSAGES, 0, 0), limit=MESSAGES).batches():
            count += len(batch)
        in_batches = max(in_batches, count / (time.perf_counter() - begin))
    return one_by_one, in_batches


class Bare:
    """The same by ctypes, as a program without the package would have it."""

    def __init__(self) -> None:
        self.library = ctypes.CDLL("libKELHandler.so.4")
        self.handle = u64()
        self.on_broadcast = OnBroadcast(lambda *_: None)
        self.library.KEL_Init()
        assert self.library.KEL_Connect(None, self.on_broadcast, ctypes.byref(self.handle)) == 0
        self.payload = (u32 * 3)(1, 2, 3)
        self.none = ctypes.cast(None, OnMessage)

    def close(self) -> None:
        assert self.library.KEL_Disconnect(self.handle) == 0
        self.library.KEL_Finalize()

    def send(self, task: bytes, on_answer: object, on_message: object, payload: object) -> None:
        number = u32()
        status = self.library.KEL_SendReceiveAsyncKELEx(
            self.handle, task, 0, payload, 12, 0, 1, ctypes.byref(number), on_answer, on_message
        )
        assert status == 0

    def in_turn(self) -> float:
        answered = threading.Event()
        on_answer = OnAnswer(lambda *_: answered.set())

        def run(end: float) -> int:
            count = 0
            while time.perf_counter() < end:
                answered.clear()
                self.send(VAL.encode(), on_answer, self.none, self.payload)
                answered.wait()
                count += 1
            return count

        return rate(run)

    def at_once(self) -> float:
        room = threading.Semaphore(IN_FLIGHT)
        on_answer = OnAnswer(lambda *_: room.release())

        def run(end: float) -> int:
            count = 0
            while time.perf_counter() < end:
                room.acquire()
                self.send(VAL.encode(), on_answer, self.none, self.payload)
                count += 1
            for _ in range(IN_FLIGHT):
                room.acquire()
            room.release(IN_FLIGHT)
            return count

        return rate(run)

    def messages(self) -> float:
        counts = [0]
        over = threading.Event()

        def take(_: int, __: int, ___: int, is_last: int, *rest: object) -> None:
            counts[0] += 1
            if is_last:
                over.set()

        on_answer, on_message = OnAnswer(lambda *_: None), OnMessage(take)

        def run(_: float) -> int:
            counts[0] = 0
            over.clear()
            self.send(STREAMER.encode(), on_answer, on_message, (u32 * 3)(MESSAGES, 0, 0))
            over.wait()
            return counts[0]

        return rate(run)


def print_row(what: str, figure: float, beside: float | None = None) -> None:
    print(f"{what:<44} {figure:>10,.0f}" + (f" {figure / beside:>9.2f}" if beside else ""), flush=True)


async def in_a_loop(bare_tasks: float, bare_messages: float) -> None:
    async with kelhandler.aio.connect() as device:
        print_row(f"asyncio: tasks, {IN_FLIGHT} at once", await at_once_in_a_loop(device), bare_tasks)
        one_by_one, in_batches = await messages_in_a_loop(device)
        print_row("asyncio: messages, one by one", one_by_one, bare_messages)
        print_row("asyncio: messages, in batches", in_batches, bare_messages)


def main() -> None:
    print(f"{'a second':>55} {'to ctypes':>9}")
    bare = Bare()
    bare_in_turn, bare_at_once, bare_messages = bare.in_turn(), bare.at_once(), bare.messages()
    bare.close()
    print_row("ctypes: tasks, one after the other", bare_in_turn)
    print_row(f"ctypes: tasks, {IN_FLIGHT} at once", bare_at_once)
    print_row("ctypes: messages", bare_messages)
    with kelhandler.connect() as device:
        print_row("tasks, one after the other", in_turn(device), bare_in_turn)
        print_row(f"tasks, {IN_FLIGHT} at once", at_once(device), bare_at_once)
        print_row("messages, in batches", messages(device), bare_messages)
    asyncio.run(in_a_loop(bare_at_once, bare_messages))


if __name__ == "__main__":
    main()
