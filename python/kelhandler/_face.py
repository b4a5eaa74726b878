# SPDX-License-Identifier: MIT
"""What both faces have in common."""

from __future__ import annotations

import functools
import inspect
from collections.abc import Callable
from typing import Generic, ParamSpec, TypeVar

from kelhandler import _native
from kelhandler._errors import Closed, Error, LinkLost, NotConnected
from kelhandler._options import Options
from kelhandler._types import End, Form, State, StateChange, Statistics, Task, TaskTable, table_as_html

Parameters = ParamSpec("Parameters")
Face = TypeVar("Face")
Item = TypeVar("Item")


def taking_options(options: Callable[Parameters, Options], face: Callable[[Options], Face]) -> Callable[Parameters, Face]:
    """A function with the parameters of Options."""

    @functools.wraps(face)
    def connect(*args: Parameters.args, **kwargs: Parameters.kwargs) -> Face:
        return face(options(*args, **kwargs))

    connect.__signature__ = inspect.signature(options)  # type: ignore[attr-defined]
    return connect


def telling(on_state: Callable[[StateChange], object]) -> Callable[[tuple[str, str, int, float]], object]:
    """`on_state` for what the module tells."""

    def tell(change: tuple[str, str, int, float]) -> None:
        state, reason, attempt, pause = change
        on_state(StateChange(State(state), reason, attempt, pause))

    return tell


def not_connected(client: _native.Client) -> Error:
    """The exception for a connection that could not be had."""
    reason = client.reason if client.state == State.CLOSED else "connecting took too long"
    return NotConnected(f"{reason}: there is no connection to the device")


class DeviceBase:
    """Where a device stands."""

    _client: _native.Client
    _is_closing = False

    @property
    def state(self) -> State:
        """Where the device stands."""
        return State(self._client.state)

    def statistics(self) -> Statistics:
        """What has happened so far."""
        return Statistics(**self._client.statistics())

    @functools.cached_property
    def table(self) -> TaskTable:
        """The task table in force, as far as this program can read it."""
        return TaskTable({row[0]: Task(row[0], row[1], Form(row[2]), row[3]) for row in self._client.table()})

    def __repr__(self) -> str:
        return f"<{type(self).__name__}, {self.state}>"

    def _repr_html_(self) -> str:
        counts = self.statistics()
        rows: list[tuple[object, ...]] = [("state", self.state), ("reason", self._client.reason)]
        rows += [(name, getattr(counts, name)) for name in ("answered", "failed", "in_flight", "queued", "losses")]
        return table_as_html(("device", ""), rows)


class ReaderBase(Generic[Item]):
    """What streams and subscriptions have in common."""

    def __init__(self, device: DeviceBase, native: _native.Reader[Item] | None) -> None:
        self._device = device
        self._native = native  # None: not open yet

    @property
    def reason(self) -> End:
        """Why no more messages come; ``End.NONE`` while there is something to read, or may be."""
        return End(self._native.reason) if self._native else End.NONE

    @property
    def dropped(self) -> int:
        """So many messages found no room."""
        return self._native.dropped if self._native else 0

    def stop(self) -> None:
        """Reads no more. What waits to be read may still be read."""
        if self._native:
            self._native.stop()

    def _raise_if_broken(self) -> None:
        """At the end: raises LinkLost, or Closed if this program has not closed the device itself."""
        reason = self.reason
        if reason is End.LINK_LOST:
            raise LinkLost("the link to the device was lost, or the connection renewed")
        if reason is End.CLOSED and not self._device._is_closing:
            raise Closed(f"the device was closed: {self._device._client.reason}")

    def __repr__(self) -> str:
        return f"<{type(self).__name__}, end: {self.reason}, dropped: {self.dropped}>"
