# SPDX-License-Identifier: MIT
"""Many tasks over a bad link."""

from __future__ import annotations

import asyncio

import chaos
import kelhandler


def test_every_call_ends_once_and_in_time() -> None:
    ends = asyncio.run(chaos.chaos(30))
    assert ends["calls"] > 5000
    assert ends["losses"] > 3
    assert ends["answered"] > ends["calls"] / 2
    assert ends["stream messages"] > 100 and ends["broadcasts"] > 100
    assert ends[kelhandler.Cause.NO_ANSWER] > 0
