# SPDX-License-Identifier: MIT
"""A device to test against: the stand-in pipe library, with a scenario.

    with kelhandler.testing.stand_in({"rules": [{"task": "MY_TASK", "delay": 200}]}) as device_side:
        with kelhandler.connect() as device:
            ...
            device_side.lose_link()

A scenario is a dictionary, as docs/scenarios.md has it in JSON. There is one stand-in in a process. It begins anew with
each ``stand_in``: state, rules, counts, and times, which start with the next connect. pytest has a fixture and a marker;
see ``kelhandler.pytest_plugin``.

Only the stand-in has these controls. With another pipe library each of them raises NoStandIn.
"""

from __future__ import annotations

import contextlib
import ctypes
import functools
import json
import os
import pathlib
import struct
import tempfile
from collections.abc import Iterator, Mapping
from typing import Any

import kelhandler  # has found the pipe library

__all__ = ["NoStandIn", "StandIn", "capture_slice", "stand_in", "start_capture"]


class NoStandIn(RuntimeError):
    """The pipe library of this process is not the stand-in."""


@functools.cache
def _library() -> ctypes.CDLL:
    assert kelhandler
    library = ctypes.CDLL("libSluiceHub.so")  # the one that is loaded, by its name
    if not hasattr(library, "SluiceHubSim_SetScenario"):
        raise NoStandIn("the pipe library of this process is not the stand-in, or an older one")
    return library


class StandIn:
    """The device's side."""

    def lose_link(self, reason: int = 1) -> int:
        """Loses the link of all connections. Returns how many there are."""
        return int(_library().SluiceHubSim_LoseLink(ctypes.c_uint64(0), reason, 0))

    def broadcast(self, tui: int, payload: bytes, sequence_word: int = 0) -> int:
        """Sends a broadcast to all connections. Returns how many there are."""
        return int(
            _library().SluiceHubSim_Broadcast(ctypes.c_uint64(0), tui, sequence_word, payload, len(payload), 0)
        )

    def wait_idle(self, timeout: float = 10.0) -> bool:
        """Waits until nothing is on its way to any connection. False after ``timeout`` seconds."""
        return bool(_library().SluiceHubSim_WaitIdle(int(timeout * 1000)))

    def wait_for_requests(self, count: int, timeout: float = 10.0) -> bool:
        """Waits until the device has had so many requests in all. False after ``timeout`` seconds."""
        return bool(_library().SluiceHubSim_WaitForRequests(ctypes.c_uint64(count), int(timeout * 1000)))

    def connections(self) -> int:
        """How many connections are open."""
        return int(_library().SluiceHubSim_GetConnections(None, 0))


def _set_scenario(path: str | None) -> None:
    if not _library().SluiceHubSim_SetScenario(path and os.fsencode(path)):
        raise ValueError("the scenario has mistakes; `kelctl scenario check` tells them")


@contextlib.contextmanager
def stand_in(scenario: Mapping[str, Any] | str | os.PathLike[str] | None = None) -> Iterator[StandIn]:
    """Puts a scenario in force, from the next connect on: a dictionary, or the path of a file. None: the quiet device.

    At the end, when all devices should be closed, the stand-in is as it was when it was loaded. Raises ValueError if the
    scenario has mistakes.
    """
    if isinstance(scenario, Mapping):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "scenario.json")
            path.write_text(json.dumps(scenario))
            _set_scenario(str(path))
    else:
        _set_scenario(None if scenario is None else os.fspath(scenario))
    try:
        yield StandIn()
    finally:
        _set_scenario(None)


def start_capture(path: str | os.PathLike[str]) -> bool:
    """Captures everything that passes in this process from now on. False if there was a capture already.

    docs/captures.md tells how to read it.
    """
    return bool(_library().SluiceHubSim_StartCapture(os.fsencode(path)))


def capture_slice(capture: bytes, begin: int) -> bytes:
    """A capture of what comes behind an offset of another one, at which one of its blocks begins."""
    head = 0
    for _ in range(2):  # the section's header, and the interface's description
        (size,) = struct.unpack_from("<4xI", capture, head)
        head += size
    return capture[:head] + capture[max(begin, head) :]
