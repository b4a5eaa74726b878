# SPDX-License-Identifier: MIT
"""The synchronous face."""

from __future__ import annotations

from collections.abc import Iterator
from types import TracebackType
from typing import Generic, TypeVar

from kelhandler import _native
from kelhandler._face import DeviceBase, Item, ReaderBase, not_connected, taking_options, telling
from kelhandler._native import Broadcast, Call, Message, Payload
from kelhandler._options import Options
from kelhandler._types import PayloadLike, State, Triple, WhenFull

AnyReader = TypeVar("AnyReader", bound="Reader[Message] | Reader[Broadcast]")


class Reader(ReaderBase[Item]):
    """Messages, to be read by a loop over them, in batches, or one by one.

    At the end a loop raises LinkLost if the link was lost, and Closed if connecting has failed for good. Any thread may
    read; each message goes to one of them.
    """

    def __init__(self, device: DeviceBase, native: _native.Reader[Item]) -> None:
        super().__init__(device, native)
        self._next = native.next
        self._batch = native.batch

    def read(self, timeout: float | None = None) -> Item | None:
        """Waits for the next message, so many seconds at most. None at the end too: see ``reason``."""
        return self._next(timeout)

    def batches(self) -> Iterator[list[Item]]:
        """Waits for messages and gives all that are there, again and again until the end."""
        while (first := self._next(None)) is not None:
            yield [first, *self._batch()]
        self._raise_if_broken()

    def __iter__(self) -> Iterator[Item]:
        while (item := self._next(None)) is not None:
            yield item
        self._raise_if_broken()

    def __enter__(self: AnyReader) -> AnyReader:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.stop()


class Stream(Reader[Message]):
    """The messages of a stream. Its end as a context stops it; so does dropping it."""

    def __init__(self, device: DeviceBase, native: _native.Stream) -> None:
        super().__init__(device, native)
        self.opening = native.opening
        """The answer by which the device opened the stream; empty if a message overtook it."""


class Subscription(Reader[Broadcast]):
    """Broadcasts, from the call on that made it. It survives reconnects."""


class Device(DeviceBase):
    """A connection to a device, made by ``kelhandler.connect``. To be closed, best by ``with``.

    Any thread may call anything at any time; Ctrl-C ends every wait but that of ``close``. After a fork it is of no use
    in the child. When the interpreter ends it is closed.
    """

    def __init__(self, options: Options) -> None:
        """Connects. Raises NotConnected."""
        self._client = _native.Client(options, options.on_state and telling(options.on_state))
        try:
            if not self._client.wait_for(State.CONNECTED, options.connect_timeout):
                raise not_connected(self._client)
        except BaseException:
            self._is_closing = True
            del self._client
            raise

    def task(
        self,
        task: str,
        payload: PayloadLike | None = None,
        *,
        values: Triple | None = None,
        timeout: float | None = None,
        repeatable: bool = False,
    ) -> Payload:
        """Sends a task and waits for its answer.

        ``task`` is a name of the task table. ``payload`` is a text, which goes as UTF-8, or anything with a contiguous
        buffer; for a VAL task it is in its place ``values``, three numbers of 32 bits, or nothing, which sends zeros.
        ``timeout`` is the call's deadline in seconds from now, by default that of the device. A ``repeatable`` task may
        be carried out twice: if the link is lost, it is sent again on the next connection.

        Raises UnknownTask, WrongForm, Refused, NoAnswer (a TimeoutError), LinkLost, NoNumber, NotConnected, Closed.
        """
        return self._client.task(task, payload, values, timeout, repeatable)

    def start(
        self,
        task: str,
        payload: PayloadLike | None = None,
        *,
        values: Triple | None = None,
        timeout: float | None = None,
        repeatable: bool = False,
    ) -> Call:
        """Sends a task and returns at once: ``result()`` of what it returns waits for the answer. See ``task``."""
        return self._client.start(task, payload, values, timeout, repeatable)

    def post(
        self,
        task: str,
        payload: PayloadLike | None = None,
        *,
        values: Triple | None = None,
        timeout: float | None = None,
        sequence_word: int = 0,
    ) -> None:
        """Sends a task that wants no answer. Waits until it was sent. Raises what ``task`` does."""
        self._client.post(task, payload, values, timeout, sequence_word)

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
        """Sends a task that answers with a stream, and waits for its opening, ``timeout`` seconds at most.

        The stream ends when no message has come for ``idle`` seconds, and ``duration`` seconds after its opening. Of
        messages that wait to be read there are ``limit`` at most. Raises what ``task`` does.
        """
        waits = when_full is WhenFull.WAIT
        native = self._client.stream(task, payload, values, timeout, idle, duration, limit, waits)
        return Stream(self, native)

    def broadcasts(
        self,
        task: str = "",
        *,
        sequence_word: int | None = None,
        limit: int = 4096,
        when_full: WhenFull = WhenFull.DROP_OLDEST,
    ) -> Subscription:
        """Subscribes to broadcasts, from now on: to all, or those of one name or one sequence word.

        Broadcasts that the task table does not name are all called ``UNKNOWN_TASK``.
        """
        return Subscription(
            self, self._client.broadcasts(task, sequence_word, limit, when_full is WhenFull.WAIT)
        )

    def validate_version(
        self, file: str, content: bytes, versions_vectors: str, *, user_version: int = 0, timeout: float | None = None
    ) -> bool:
        """Asks whether a file belongs to the software generation that runs on the device.

        ``file`` is its name and ``content`` what it holds; see KEL_ValidateVersion in KELHandler.h. While it waits for
        the device, no tasks are sent in this process. Raises NotConnected, LinkLost, NoAnswer, Closed.
        """
        return self._client.validate_version(file, content, versions_vectors, user_version, timeout)

    def wait_for(self, state: State, timeout: float | None = None) -> bool:
        """Waits until the device is in that state. False after ``timeout`` seconds, or if it was closed instead."""
        return self._client.wait_for(state, timeout)

    def close(self) -> None:
        """Ends all calls and streams, disconnects, and waits for that. May be called again, also by ``on_state``."""
        self._is_closing = True
        self._client.close()

    def __enter__(self) -> Device:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()


connect = taking_options(Options, Device)
connect.__doc__ = """Connects to the device of the pipe library. The parameters are those of ``Options``.

    with kelhandler.connect(reconnect=True) as device:
        print(device.task("TASK_ID_APPLICATION_DEBUG_VAL", values=(7, 8, 9)).values)

Raises NotConnected if there is no connection within ``connect_timeout``.
"""
