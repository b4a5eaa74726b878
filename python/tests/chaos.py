# SPDX-License-Identifier: MIT
"""A client in a storm, for some seconds: python3 chaos.py SECONDS [SEED]

The device drops the link, loses answers, is late and refuses connects. Each call has to end once, and not later than its
deadline and 50 ms, to which is added what the machine itself comes late; memory, threads and descriptors must not grow.
Prints what became of the calls and a verdict. The same seed gives the same device and the same calls. Run it with
KELHANDLER_RELEASE_BLOCKS=1: by default the library keeps a block for each task.
"""

from __future__ import annotations

import asyncio
import collections
import dataclasses
import os
import random
import resource
import sys
import time

import kelhandler
import kelhandler.aio
import kelhandler.testing

VAL = "TASK_ID_APPLICATION_DEBUG_VAL"
STREAMER = "TASK_ID_APPLICATION_DEBUG_STREAMER"
RATE = 200  # tasks a second
GRACE = 0.05
# A call that ends passes through threads of the client and the loop, each of which has to be woken and then to run.
WAKES = 6

SCENARIO = {
    "rules": [
        {"task": STREAMER, "stream": {"count": 1000000, "interval": 2}},
        {"task": VAL, "delay": 1, "jitter": 20, "drop": {"probability": 0.02}},
    ],
    "broadcasts": [{"task": VAL, "at": 50, "every": 10}],
    "linkLosses": [{"at": 1500}],
    "socketRefusals": [{"skip": 1, "times": 3}, {"skip": 3, "times": 1}],
}

# What must not grow in the second half, and by how much it may for what is under way.
LEVELS = {"memory": 4e6, "threads": 8.0, "descriptors": 4.0}


def levels() -> dict[str, int]:
    """What the process has of the system."""
    with open("/proc/self/statm", encoding="ascii") as file:
        memory = int(file.read().split()[1]) * resource.getpagesize()
    return {
        "memory": memory,
        "threads": len(os.listdir("/proc/self/task")),
        "descriptors": len(os.listdir("/proc/self/fd")),
    }


@dataclasses.dataclass
class Outcome:
    """What became of the calls."""

    ends: collections.Counter[str] = dataclasses.field(default_factory=collections.Counter)
    calls: int = 0
    losses: int = 0
    latest: float = -1.0
    """How late a call ended behind its deadline, in seconds."""
    machine: float = 0.0
    """How late the loop came round when nothing was asked of it but the time."""
    growth: dict[str, float] = dataclasses.field(default_factory=dict)

    @property
    def ended(self) -> int:
        """How many calls have ended."""
        return sum(self.ends[cause] for cause in ("answered", *kelhandler.Cause))

    @property
    def held(self) -> bool:
        """Whether everything is as promised."""
        return (
            self.ended == self.calls > 0
            and self.ends["answered"] > self.calls / 2
            and all(self.ends[kind] > 0 for kind in ("stream messages", "broadcasts", kelhandler.Cause.NO_ANSWER))
            and self.losses > 0
            and self.latest <= GRACE + WAKES * self.machine
            and all(self.growth[name] <= LEVELS[name] for name in self.growth)
        )


def mean(samples: list[dict[str, int]], name: str) -> float:
    """The mean of one level."""
    return sum(sample[name] for sample in samples) / len(samples)


async def chaos(seconds: float, seed: int) -> Outcome:
    """Keeps a client busy for so long."""
    rng = random.Random(seed)
    outcome = Outcome()
    ends = outcome.ends
    samples: list[dict[str, int]] = []

    async def call(device: kelhandler.aio.Device, number: int, timeout: float) -> None:
        begin = time.monotonic()
        try:
            answer = await device.task(VAL, values=(number, 1, 2), timeout=timeout, repeatable=number % 2 == 0)
            assert answer.values == (number, 1, 2)
            ends["answered"] += 1
        except kelhandler.Error as error:
            ends[error.cause] += 1
        outcome.latest = max(outcome.latest, time.monotonic() - begin - timeout)

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

    async def watch() -> None:
        while True:
            due = time.monotonic() + 0.005
            await asyncio.sleep(0.005)
            outcome.machine = max(outcome.machine, time.monotonic() - due)

    with kelhandler.testing.stand_in({"seed": seed, **SCENARIO}):
        async with kelhandler.aio.connect(
            reconnect=True, heartbeat=VAL, heartbeat_interval=0.1, heartbeat_misses=2, first_pause=0.02
        ) as device:
            readers = [asyncio.create_task(stream(device)) for _ in range(2)] + [asyncio.create_task(listen(device))]
            watcher = asyncio.create_task(watch())
            calls: set[asyncio.Task[None]] = set()
            begin = time.monotonic()
            while (elapsed := time.monotonic() - begin) < seconds:
                while outcome.calls < elapsed * RATE:
                    task = asyncio.create_task(call(device, outcome.calls, rng.uniform(0.05, 1.0)))
                    calls.add(task)
                    task.add_done_callback(calls.discard)
                    outcome.calls += 1
                if len(samples) < elapsed:
                    samples.append(levels())
                await asyncio.sleep(1 / RATE)
            await asyncio.gather(*calls)
            watcher.cancel()
            outcome.losses = device.statistics().losses
        await asyncio.gather(*readers)
    half = samples[len(samples) // 2 :]
    middle = len(half) // 2
    outcome.growth = {name: mean(half[middle:], name) - mean(half[:middle], name) for name in LEVELS}
    return outcome


def main(seconds: float, seed: int) -> int:
    """Prints what became of it. Returns the exit status."""
    print(f"seed {seed}", flush=True)
    outcome = asyncio.run(chaos(seconds, seed))
    print(f"calls: {outcome.calls} started, {outcome.ended} ended; link losses: {outcome.losses}")
    print(", ".join(f"{name} {count}" for name, count in sorted(outcome.ends.items())))
    allowed = 1e3 * (GRACE + WAKES * outcome.machine)
    print(
        f"latest: {1e3 * outcome.latest:.1f} ms behind its deadline "
        f"(may be {allowed:.1f}: the loop was {1e3 * outcome.machine:.1f} ms late)"
    )
    print("grew: " + ", ".join(f"{name} {growth:.1f}" for name, growth in outcome.growth.items()))
    print("passed" if outcome.held else "FAILED")
    return 0 if outcome.held else 1


if __name__ == "__main__":
    sys.exit(main(float(sys.argv[1]), int(sys.argv[2]) if len(sys.argv) > 2 else random.randrange(1_000_000)))
