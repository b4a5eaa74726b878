# SPDX-License-Identifier: MIT
from collections.abc import Callable
from typing import Generic, Literal, TypeVar, overload

from kelhandler._options import Options
from kelhandler._types import PayloadLike, Triple

Item = TypeVar("Item")

def version() -> tuple[int, int, int, int, int]: ...
def end() -> None: ...
def forked() -> None: ...

class Payload:
    @property
    def data(self) -> memoryview: ...
    @property
    def values(self) -> tuple[int, int, int]: ...
    @property
    def text(self) -> str: ...
    @property
    def form(self) -> Literal["VAL", "REF"]: ...
    @property
    def sequence_word(self) -> int: ...
    def __len__(self) -> int: ...
    def __bytes__(self) -> bytes: ...

class Message(Payload):
    @property
    def is_last(self) -> bool: ...

class Broadcast(Payload):
    @property
    def task(self) -> str: ...

class Mailbox:
    def fileno(self) -> int: ...
    def take(self) -> list[tuple[int, object]]: ...

class Call:
    def result(self) -> Payload: ...
    def wait(self, timeout: float) -> bool: ...
    def done(self) -> bool: ...
    def cancel(self) -> bool: ...

class Reader(Generic[Item]):  # in this file only
    def next(self, timeout: float | None) -> Item | None: ...
    def batch(self) -> list[Item]: ...
    @property
    def reason(self) -> str: ...
    @property
    def dropped(self) -> int: ...
    def stop(self) -> None: ...
    def tell_when_ready(self, mailbox: Mailbox, addressee: int) -> None: ...

class Stream(Reader[Message]):
    @property
    def opening(self) -> Payload: ...

class Subscription(Reader[Broadcast]): ...

class Client:
    def __init__(
        self,
        options: Options,
        on_state: Callable[[tuple[str, str, int, float]], object] | None,
        mailbox: Mailbox | None = None,
        addressee: int = 0,
    ) -> None: ...
    def task(
        self, task: str, payload: PayloadLike | None, values: Triple | None, timeout: float | None, repeatable: bool
    ) -> Payload: ...
    def start(
        self,
        task: str,
        payload: PayloadLike | None,
        values: Triple | None,
        timeout: float | None,
        repeatable: bool,
        mailbox: Mailbox | None = None,
        addressee: int = 0,
    ) -> Call: ...
    def post(
        self,
        task: str,
        payload: PayloadLike | None,
        values: Triple | None,
        timeout: float | None,
        sequence_word: int,
        mailbox: Mailbox | None = None,
        addressee: int = 0,
    ) -> None: ...
    @overload
    def stream(
        self,
        task: str,
        payload: PayloadLike | None,
        values: Triple | None,
        timeout: float | None,
        idle: float | None,
        duration: float | None,
        limit: int,
        waits_when_full: bool,
    ) -> Stream: ...
    @overload
    def stream(
        self,
        task: str,
        payload: PayloadLike | None,
        values: Triple | None,
        timeout: float | None,
        idle: float | None,
        duration: float | None,
        limit: int,
        waits_when_full: bool,
        mailbox: Mailbox,
        addressee: int,
    ) -> None: ...
    def broadcasts(
        self, task: str, sequence_word: int | None, limit: int, waits_when_full: bool
    ) -> Subscription: ...
    @overload
    def validate_version(
        self, file: str, content: bytes, vectors: str, user_version: int, timeout: float | None
    ) -> bool: ...
    @overload
    def validate_version(
        self,
        file: str,
        content: bytes,
        vectors: str,
        user_version: int,
        timeout: float | None,
        mailbox: Mailbox,
        addressee: int,
    ) -> None: ...
    def close(self) -> None: ...
    def begin_closing(self, mailbox: Mailbox, addressee: int) -> None: ...
    @property
    def state(self) -> str: ...
    @property
    def reason(self) -> str: ...
    def wait_for(self, state: str, timeout: float | None) -> bool: ...
    def statistics(self) -> dict[str, int]: ...
    def table(self) -> list[tuple[str, int, str, int]]: ...
