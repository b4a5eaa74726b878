# SPDX-License-Identifier: MIT
"""The asynchronous face."""

from __future__ import annotations

import asyncio
import gc
from collections.abc import Callable, Coroutine
from typing import Any

import kelhandler
import kelhandler.aio
import pytest

VAL = "TASK_ID_APPLICATION_DEBUG_VAL"
STREAMER = "TASK_ID_APPLICATION_DEBUG_STREAMER"


def in_loop(test: Callable[[], Coroutine[Any, Any, None]]) -> Callable[[], None]:
    """A test that is a coroutine."""

    def run() -> None:
        asyncio.run(test())

    run.__name__ = test.__name__
    return run


@in_loop
async def test_a_task_is_answered() -> None:
    async with kelhandler.aio.connect() as device:
        assert (await device.task(VAL, values=(7, 8, 9))).values == (7, 8, 9)


@in_loop
async def test_a_device_may_be_awaited_and_closed_by_hand() -> None:
    device = await kelhandler.aio.connect()
    assert (await device.task(VAL, values=(7, 8, 9))).values == (7, 8, 9)
    await asyncio.gather(device.close(), device.close())
    with pytest.raises(kelhandler.Closed):
        await device.task(VAL)


@in_loop
async def test_many_tasks_are_under_way_at_once() -> None:
    async with kelhandler.aio.connect() as device:
        answers = await asyncio.gather(*(device.task(VAL, values=(i, 0, 0)) for i in range(500)))
    assert [answer.values[0] for answer in answers] == list(range(500))


@in_loop
async def test_errors_are_raised_where_the_task_is_awaited() -> None:
    async with kelhandler.aio.connect() as device:
        with pytest.raises(kelhandler.UnknownTask):
            await device.task("NO_SUCH_TASK")
        with pytest.raises(TypeError):
            await device.task(VAL, 5)  # type: ignore[arg-type]
        with pytest.raises(kelhandler.UnknownTask):
            async for _ in device.stream("NO_SUCH_TASK"):
                pass
        with pytest.raises(kelhandler.UnknownTask):
            await device.post("NO_SUCH_TASK")
        await device.post(VAL)


@in_loop
async def test_a_stream_is_read_by_a_loop() -> None:
    async with kelhandler.aio.connect() as device:
        stream = device.stream(STREAMER, values=(1000, 0, 0))
        assert [message.values[0] async for message in stream] == list(range(1001))
    assert stream.reason is kelhandler.End.FINISHED


@in_loop
async def test_a_stream_is_read_in_batches_and_one_by_one() -> None:
    async with kelhandler.aio.connect() as device:
        batches = [batch async for batch in device.stream(STREAMER, values=(1000, 0, 0)).batches()]
        assert [message.values[0] for batch in batches for message in batch] == list(range(1001))
        async with device.stream(STREAMER, values=(2, 60000, 0)) as stream:
            assert stream.opening.form == kelhandler.Form.VAL
            first = await stream.read()
            assert first is not None and first.values[0] == 0
            assert await stream.read(timeout=0.01) is None


@in_loop
async def test_broadcasts_are_read_by_a_loop() -> None:
    async with kelhandler.aio.connect() as device:
        broadcasts = device.broadcasts()
        await device.task("TASK_ID_APPLICATION_DEBUG_BROADCASTER", values=(3, 1, 0))
        assert [(await anext(broadcasts)).values[0] for _ in range(3)] == [0, 1, 2]


@in_loop
async def test_closing_ends_loops_quietly() -> None:
    async with kelhandler.aio.connect() as device:

        async def read() -> int:
            return len([message async for message in stream])

        async def listen() -> int:
            return len([broadcast async for broadcast in device.broadcasts()])

        stream = device.stream(STREAMER, values=(1000000, 1, 0))
        reading = asyncio.create_task(read())
        listening = asyncio.create_task(listen())
        while device.statistics().stream_messages == 0:
            await asyncio.sleep(0)
    assert await reading > 0
    assert await listening == 0


@in_loop
async def test_states_are_told_in_the_loop() -> None:
    loop = asyncio.get_running_loop()
    changes: list[kelhandler.StateChange] = []

    def on_state(change: kelhandler.StateChange) -> None:
        assert asyncio.get_running_loop() is loop
        changes.append(change)

    async with kelhandler.aio.connect(on_state=on_state):
        pass
    assert [change.state for change in changes] == ["connecting", "connected", "closed"]


@in_loop
async def test_what_on_state_raises_goes_to_the_loops_handler() -> None:
    told: list[dict[str, Any]] = []
    asyncio.get_running_loop().set_exception_handler(lambda _, context: told.append(context))

    def on_state(change: kelhandler.StateChange) -> None:
        raise RuntimeError(change.state)

    async with kelhandler.aio.connect(on_state=on_state) as device:
        assert (await device.task(VAL, values=(7, 8, 9))).values == (7, 8, 9)
    assert [str(context["exception"]) for context in told] == ["connecting", "connected", "closed"]


@in_loop
async def test_the_loop_is_woken_once_for_what_comes_together() -> None:
    async with kelhandler.aio.connect() as device:
        takes = 0
        deliver = device._office._deliver

        def counting() -> None:
            nonlocal takes
            takes += 1
            deliver()

        asyncio.get_running_loop().add_reader(device._office.mailbox.fileno(), counting)
        calls = [device.start(VAL, values=(i, 0, 0)) for i in range(50)]
        while device.statistics().answered < 50:
            pass  # the loop does not run
        await asyncio.gather(*calls)
        assert takes <= 2


def test_a_loop_that_is_closed_early_is_told_nothing_more(capfd: pytest.CaptureFixture[str]) -> None:
    async def leave_open() -> tuple[kelhandler.aio.Device, kelhandler.aio.Stream]:
        device = await kelhandler.aio.connect()
        stream = device.stream(STREAMER, values=(1000000, 0, 0))
        await anext(stream)
        device.start(VAL)
        return device, stream

    device, stream = asyncio.run(leave_open())
    device._client.task(VAL, None, None, None, False)
    asyncio.run(device.close())
    del device, stream
    gc.collect()
    assert capfd.readouterr() == ("", "")


def test_a_device_that_is_dropped_is_closed_and_warned_of() -> None:
    async def drop() -> None:
        device = await kelhandler.aio.connect()
        with pytest.warns(ResourceWarning, match="never closed"):
            del device
            gc.collect()

    asyncio.run(drop())
    with kelhandler.connect() as device:
        assert device.task(VAL, values=(7, 8, 9)).values == (7, 8, 9)
