# SPDX-License-Identifier: MIT
"""The same for asyncio.

    async with kelhandler.aio.connect() as device:
        print((await device.task("TASK_ID_APPLICATION_DEBUG_VAL", values=(7, 8, 9))).values)
        async for message in device.stream("TASK_ID_APPLICATION_DEBUG_STREAMER", values=(5, 10, 0)):
            print(message.values)

A device belongs to the event loop that it was connected in, and is used by that loop's thread alone. Nothing blocks the
loop. However much arrives at once, the loop is woken once for it.
"""

from __future__ import annotations

import asyncio
import collections
import itertools
import warnings
import weakref
from collections.abc import AsyncIterator, Awaitable, Callable, Generator
from types import TracebackType
from typing import Any, TypeVar, cast

from kelhandler import _native
from kelhandler._errors import Closed
from kelhandler._face import DeviceBase, Item, ReaderBase, not_connected, taking_options, telling
from kelhandler._native import Broadcast, Message, Payload
from kelhandler._options import Options
from kelhandler._types import PayloadLike, State, Triple, WhenFull

__all__ = ["Device", "Stream", "Subscription", "connect"]

AnyReader = TypeVar("AnyReader", bound="Reader[Any]")
Result = TypeVar("Result")


class _Office:
    """Brings the letters of a mailbox to those in the loop who wait for them."""

    _STATE = 0

    def __init__(self, on_state: Callable[[tuple[str, str, int, float]], object]) -> None:
        self.loop = asyncio.get_running_loop()
        self.mailbox = _native.Mailbox()
        self._numbers = itertools.count(1)
        self._futures: dict[int, asyncio.Future[Any]] = {}
        self._events: weakref.WeakValueDictionary[int, asyncio.Event] = weakref.WeakValueDictionary()
        self._on_state = on_state
        self._is_closed = False
        self.loop.add_reader(self.mailbox.fileno(), self._deliver)

    def expect(self, future: asyncio.Future[Result], send: Callable[[_native.Mailbox, int], object]) -> None:
        """Has what `send` asks for become the outcome of a future."""
        if self._is_closed:
            raise Closed("the device was closed")
        number = next(self._numbers)
        self._futures[number] = future
        try:
            send(self.mailbox, number)
        except BaseException:
            del self._futures[number]
            raise

    def ask(self, send: Callable[[_native.Mailbox, int], object]) -> asyncio.Future[Any]:
        """A future for what `send` asks for."""
        future: asyncio.Future[Any] = self.loop.create_future()
        self.expect(future, send)
        return future

    def watch(self, reader: _native.Reader[Any]) -> asyncio.Event:
        """An event that is set when there is something to read again."""
        event = asyncio.Event()
        number = next(self._numbers)
        self._events[number] = event
        reader.tell_when_ready(self.mailbox, number)
        return event

    def close(self) -> None:
        """Takes no more questions. Those that are open are still answered."""
        self._is_closed = True
        self._leave_if_done()

    def _leave_if_done(self) -> None:
        if self._is_closed and not self._futures and not self.loop.is_closed():
            self.loop.remove_reader(self.mailbox.fileno())

    def _deliver(self) -> None:
        for number, content in self.mailbox.take():
            if (future := self._futures.pop(number, None)) is not None:
                if future.done():
                    continue
                if isinstance(content, Exception):
                    future.set_exception(content)
                    if isinstance(content, Closed):
                        future.exception()  # whoever closes a device does not ask for each call
                else:
                    future.set_result(content)
            elif (event := self._events.get(number)) is not None:
                event.set()
            elif number == self._STATE:
                try:
                    self._on_state(cast("tuple[str, str, int, float]", content))
                except Exception as error:
                    self.loop.call_exception_handler({"message": "on_state has raised", "exception": error})
        self._leave_if_done()


class _CallFuture(asyncio.Future[Payload]):
    """A call under way. To cancel it cancels the call."""

    call: _native.Call

    def cancel(self, msg: Any | None = None) -> bool:
        if not super().cancel(msg):
            return False
        self.call.cancel()
        return True


class Reader(ReaderBase[Item], AsyncIterator[Item]):
    """Messages, to be read by a loop over them, in batches, or one by one.

    At the end a loop raises LinkLost if the link was lost, and Closed if connecting has failed for good.
    """

    def __init__(self, device: Device, native: _native.Reader[Item] | None = None) -> None:
        super().__init__(device, native)
        self._office = device._office
        self._items: collections.deque[Item] = collections.deque()
        self._ready = self._office.watch(native) if native else asyncio.Event()

    async def _open(self) -> _native.Reader[Item]:
        assert self._native is not None
        return self._native

    async def _refill(self) -> bool:
        """Waits for messages. False at the end."""
        native = self._native or await self._open()
        while True:
            self._ready.clear()
            if items := native.batch():
                self._items.extend(items)
                return True
            if native.reason != "none":
                return False
            await self._ready.wait()

    async def __anext__(self) -> Item:
        if not self._items and not await self._refill():
            self._raise_if_broken()
            raise StopAsyncIteration
        return self._items.popleft()

    async def read(self, timeout: float | None = None) -> Item | None:
        """Waits for the next message, so many seconds at most. None at the end too: see ``reason``."""
        try:
            async with asyncio.timeout(timeout):
                if not self._items and not await self._refill():
                    return None
        except TimeoutError:
            return None
        return self._items.popleft()

    async def batches(self) -> AsyncIterator[list[Item]]:
        """Waits for messages and gives all that are there, again and again until the end."""
        while self._items or await self._refill():
            batch = list(self._items)
            self._items.clear()
            yield batch
        self._raise_if_broken()

    async def __aenter__(self: AnyReader) -> AnyReader:
        await self._open()
        return self

    async def __aexit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.stop()


class Stream(Reader[Message]):
    """The messages of a stream, which is opened by its first use. Its end as a context stops it; so does dropping it."""

    opening: Payload
    """The answer by which the device opened the stream; empty if a message overtook it."""

    def __init__(self, device: Device, ask: Callable[[], Awaitable[_native.Stream]]) -> None:
        super().__init__(device)
        self._ask = ask

    async def _open(self) -> _native.Reader[Message]:
        if self._native is None:
            native = await self._ask()
            self.opening = native.opening
            self._native = native
            self._ready = self._office.watch(native)
        return self._native


class Subscription(Reader[Broadcast]):
    """Broadcasts, from the call on that made it. It survives reconnects."""


class Device(DeviceBase):
    """A connection to a device, made by ``kelhandler.aio.connect``. To be closed, best by ``async with``."""

    def __init__(self, options: Options) -> None:
        """Begins to connect."""
        self._tell = options.on_state and telling(options.on_state)
        self._state_waiters: dict[asyncio.Future[None], State] = {}
        me = weakref.ref(self)

        def take(change: tuple[str, str, int, float]) -> None:
            if device := me():
                device._state_changed(change)

        self._office = _Office(take)
        self._client = _native.Client(options, None, self._office.mailbox, _Office._STATE)
        self._closing: asyncio.Future[None] | None = None

    def _state_changed(self, change: tuple[str, str, int, float]) -> None:
        for waiter, state in self._state_waiters.items():
            if change[0] in (state, State.CLOSED) and not waiter.done():
                waiter.set_result(None)
        if self._tell:
            self._tell(change)

    def start(
        self,
        task: str,
        payload: PayloadLike | None = None,
        *,
        values: Triple | None = None,
        timeout: float | None = None,
        repeatable: bool = False,
    ) -> asyncio.Future[Payload]:
        """Sends a task at once, and gives a future for its answer. To cancel that cancels the call. See ``task``."""
        future = _CallFuture(loop=self._office.loop)

        def send(mailbox: _native.Mailbox, number: int) -> None:
            future.call = self._client.start(task, payload, values, timeout, repeatable, mailbox, number)

        self._office.expect(future, send)
        return future

    async def task(
        self,
        task: str,
        payload: PayloadLike | None = None,
        *,
        values: Triple | None = None,
        timeout: float | None = None,
        repeatable: bool = False,
    ) -> Payload:
        """Sends a task and waits for its answer; see ``kelhandler.Device.task``. Cancelling it cancels the call."""
        return await self.start(task, payload, values=values, timeout=timeout, repeatable=repeatable)

    async def post(
        self,
        task: str,
        payload: PayloadLike | None = None,
        *,
        values: Triple | None = None,
        timeout: float | None = None,
        sequence_word: int = 0,
    ) -> None:
        """Sends a task that wants no answer. Waits until it was sent. Raises what ``task`` does."""
        await self._office.ask(
            lambda mailbox, number: self._client.post(task, payload, values, timeout, sequence_word, mailbox, number)
        )

    def stream(
        self,
        task: str,
        payload: PayloadLike | None = None,
        *,
        values: Triple | None = None,
        timeout: float | None = None,
        idle: float | None = None,
        duration: float | None = None,
        limit: int = 65536,
        when_full: WhenFull = WhenFull.DROP_OLDEST,
    ) -> Stream:
        """A stream of messages, for ``async for`` or ``async with``; see ``kelhandler.Device.stream``.

        The task is sent at the first use, which raises what ``task`` does.
        """
        waits = when_full is WhenFull.WAIT
        return Stream(
            self,
            lambda: self._office.ask(
                lambda mailbox, number: self._client.stream(
                    task, payload, values, timeout, idle, duration, limit, waits, mailbox, number
                )
            ),
        )

    def broadcasts(
        self,
        task: str = "",
        *,
        sequence_word: int | None = None,
        limit: int = 4096,
        when_full: WhenFull = WhenFull.DROP_OLDEST,
    ) -> Subscription:
        """Subscribes to broadcasts, from now on; see ``kelhandler.Device.broadcasts``."""
        return Subscription(self, self._client.broadcasts(task, sequence_word, limit, when_full is WhenFull.WAIT))

    async def validate_version(
        self, file: str, content: bytes, versions_vectors: str, *, user_version: int = 0, timeout: float | None = None
    ) -> bool:
        """Whether a file belongs to the software on the device; see ``kelhandler.Device.validate_version``."""
        verdict = await self._office.ask(
            lambda mailbox, number: self._client.validate_version(
                file, content, versions_vectors, user_version, timeout, mailbox, number
            )
        )
        return bool(verdict)

    async def wait_for(self, state: State, timeout: float | None = None) -> bool:
        """Waits until the device is in that state. False after ``timeout`` seconds, or if it was closed instead."""
        if self.state in (state, State.CLOSED):
            return self.state is state
        waiter = self._office.loop.create_future()
        self._state_waiters[waiter] = state
        try:
            async with asyncio.timeout(timeout):
                await waiter
        except TimeoutError:
            return False
        finally:
            del self._state_waiters[waiter]
        return self.state is not State.CLOSED or state is State.CLOSED

    async def close(self) -> None:
        """Ends all calls and streams, disconnects, and waits for that. May be called again.

        It goes on if it is cancelled. After the end of the device's own event loop it may be called in another one.
        """
        self._is_closing = True
        if asyncio.get_running_loop() is not self._office.loop:
            await asyncio.to_thread(self._client.close)
            return
        await asyncio.shield(self._begin_closing())

    def _begin_closing(self) -> asyncio.Future[None]:
        if self._closing is None:
            self._closing = self._office.ask(self._client.begin_closing)
            self._closing.add_done_callback(lambda _: self._office.close())
        return self._closing

    def __del__(self) -> None:
        if hasattr(self, "_closing") and self._closing is None:
            warnings.warn(f"{self!r} was never closed", ResourceWarning, source=self)
            self._office.close()


class Connecting(Awaitable[Device]):
    """What ``connect`` returns: to be awaited, or the context manager of ``async with``."""

    def __init__(self, options: Options) -> None:
        self._options = options

    def __await__(self) -> Generator[Any, None, Device]:
        return self._connect().__await__()

    async def _connect(self) -> Device:
        device = Device(self._options)
        try:
            if not await device.wait_for(State.CONNECTED, self._options.connect_timeout):
                raise not_connected(device._client)
        except BaseException:
            device._begin_closing()
            raise
        return device

    async def __aenter__(self) -> Device:
        self._device = await self
        return self._device

    async def __aexit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        await self._device.close()


connect = taking_options(Options, Connecting)
connect.__doc__ = """Connects to the device of the pipe library. The parameters are those of ``Options``.

Use ``async with kelhandler.aio.connect() as device``, or ``device = await kelhandler.aio.connect()`` and
``await device.close()``. Raises NotConnected if there is no connection within ``connect_timeout``.
"""
