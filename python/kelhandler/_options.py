# SPDX-License-Identifier: MIT
"""What a device may be told when it is connected."""

from __future__ import annotations

import dataclasses
import os
from collections.abc import Callable

from kelhandler._types import StateChange


@dataclasses.dataclass(frozen=True, kw_only=True)
class Options:
    """The arguments of ``kelhandler.connect`` and ``kelhandler.aio.connect``. All times are in seconds."""

    device: str = dataclasses.field(default="kel:", kw_only=False)
    """Which device: ``kel:`` is the one of this host, ``nats://HOST[,HOST]/SITE/DEVICE`` one of another host, and any
    other word is a name that ``~/.config/kelhandler/fleet.json`` has such a URI for. See docs/fleet.md."""
    reservation: str = ""
    """The id of a reservation of the device, under which everything is sent."""
    table: str | os.PathLike[str] = ""
    """Path of a task table in place of the one that the settings name."""
    timeout: float = 10.0
    """Deadline of a call that names none, from its start."""
    connect_timeout: float = 10.0
    """How long ``connect`` waits for the connection."""
    max_in_flight: int = 60
    """So many calls are under way at most, streams included; 1 to 64."""
    max_queued: int = 1024
    """So many further calls wait to be sent. Beyond that they fail with NoNumber."""

    heartbeat: str = ""
    """The task that asks the device for a sign of life. Empty: none, since nothing is sent to a device unasked."""
    heartbeat_values: tuple[int, int, int] = (0, 0, 0)
    heartbeat_interval: float = 1.0
    """A heartbeat is sent if nothing has come from the device for so long, and waits as long for its answer."""
    heartbeat_misses: int = 3
    """So many heartbeats in a row without an answer, and the link counts as lost."""
    refusals: int = 3
    """Without a heartbeat: so many tasks refused in a row, and the link counts as lost. 0: never. Only with reconnect."""

    reconnect: bool = False
    """Connect again when the link is lost, and when connecting fails."""
    first_pause: float = 0.1
    """The pause before that. Each next one is twice as long."""
    longest_pause: float = 30.0
    attempts: int = 0
    """So many attempts in a row that fail, and the device closes itself. 0: it goes on."""
    renew_at: int = 32
    """With reconnect: when stopped streams hold so many of the 64 numbers, the connection is renewed. 0: never."""

    on_state: Callable[[StateChange], object] | None = None
    """Gets each change of state: on a thread of the device's own, or with ``aio`` in the event loop. What it raises goes
    to ``sys.unraisablehook``, or the loop's exception handler."""
