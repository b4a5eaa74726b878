# SPDX-License-Identifier: MIT
"""Small values of both faces."""

from __future__ import annotations

import dataclasses
import enum
import html
from array import array
from collections.abc import Sequence
from typing import Any, NamedTuple, Protocol, TypeAlias


class HasData(Protocol):
    """What shows its memory in this way: a ``Payload``, a NumPy array."""

    @property
    def data(self) -> memoryview:
        """The memory."""


PayloadLike: TypeAlias = "str | bytes | bytearray | memoryview | array[Any] | HasData"
"""What may be sent: a text, which goes as UTF-8 without an end mark, or contiguous memory, which goes as it is."""

Triple: TypeAlias = Sequence[int]
"""Three numbers from 0 to 4294967295."""


class Form(enum.StrEnum):
    """What a payload is."""

    VAL = "VAL"
    """Three unsigned 32-bit values, 12 bytes in all."""
    REF = "REF"
    """Raw bytes."""


class State(enum.StrEnum):
    """Where a device stands."""

    CONNECTING = "connecting"
    """Not connected yet, or not again. Calls wait to be sent."""
    CONNECTED = "connected"
    """Calls are sent."""
    LOST = "lost"
    """The link is gone. Calls wait if the device reconnects, else they fail."""
    CLOSED = "closed"
    """For good."""


class End(enum.StrEnum):
    """Why no more messages come."""

    NONE = "none"
    """They may still come."""
    FINISHED = "finished"
    """The device has ended the stream."""
    STOPPED = "stopped"
    """The reader has."""
    IDLE = "idle"
    """No message came for too long."""
    DEADLINE = "deadline"
    """The stream's time is over."""
    LINK_LOST = "link-lost"
    """The link was lost, or the connection renewed."""
    CLOSED = "closed"
    """The device was closed."""


class WhenFull(enum.StrEnum):
    """What happens to a message for which its queue has no room."""

    DROP_OLDEST = "drop-oldest"
    """The oldest message makes room, and is counted."""
    WAIT = "wait"
    """It waits for room. Meanwhile nothing else arrives on the connection, answers included."""


class StateChange(NamedTuple):
    """A change of state, in the order of their happening."""

    state: State
    reason: str
    """Why, in words."""
    attempt: int
    """With CONNECTING: the how manieth attempt in a row, from 1."""
    pause: float
    """With LOST: seconds until the next attempt."""


class Task(NamedTuple):
    """A row of a task table."""

    name: str
    tui: int
    form: Form
    target: int
    """Which part of the device it is for: 2 user driver, 4 firmware, 6 trace, 8 upper DSPs."""


def table_as_html(head: tuple[str, ...], rows: list[tuple[object, ...]]) -> str:
    """A table for notebooks."""

    def row(cell: str, cells: tuple[object, ...]) -> str:
        return "<tr>" + "".join(f"<{cell}>{html.escape(str(one))}</{cell}>" for one in cells) + "</tr>"

    return "<table>" + row("th", head) + "".join(row("td", cells) for cells in rows) + "</table>"


class TaskTable(dict[str, Task]):
    """The tasks of a table by name, in the table's order."""

    def _repr_html_(self) -> str:
        return table_as_html(
            ("name", "TUI", "form", "target"), [(t.name, f"{t.tui:#x}", t.form, t.target) for t in self.values()]
        )


@dataclasses.dataclass(frozen=True)
class Statistics:
    """Counts since the device was connected first, and where it stands."""

    answered: int
    """Calls that ended with an answer, or were sent if they wanted none."""
    failed: int
    """Calls that ended with an error."""
    late_answers: int
    """Answers that came when their call had ended."""
    repeated: int
    """Calls that were sent again after a loss."""
    stream_messages: int
    """Messages that came for streams."""
    broadcasts: int
    """Broadcasts that came."""
    dropped_messages: int
    """Stream messages that found no room."""
    dropped_broadcasts: int
    """The same of broadcasts, for each subscription that lost one."""
    connections: int
    """Times that a connection was opened."""
    losses: int
    """Times that the link was lost."""
    heartbeats: int
    """Heartbeats that were sent."""
    in_flight: int
    """Calls under way now, streams included."""
    queued: int
    """Calls that wait to be sent now."""
    held_numbers: int
    """Numbers held now by calls and streams that have ended for the caller only."""

    def _repr_html_(self) -> str:
        return table_as_html(("count", "value"), list(dataclasses.asdict(self).items()))
