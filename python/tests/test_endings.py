# SPDX-License-Identifier: MIT
"""The interpreter ends in the midst of something, neither hanging nor crashing."""

from __future__ import annotations

import signal
import subprocess
import sys
import time

import endings
import pytest


@pytest.mark.parametrize("way", endings.WAYS)
def test_an_interpreter_ends_well(way: str) -> None:
    for _ in range(3):
        run = endings.end(way)
        assert (run.returncode, run.stdout, run.stderr) == (0, "", "")


WAIT = """
import kelhandler, kelhandler.testing
with kelhandler.testing.stand_in({"rules": [{"drop": True}]}), kelhandler.connect() as device:
    broadcasts = device.broadcasts()
    try:
        print("waits", flush=True)
        %s
    except KeyboardInterrupt:
        print("interrupted")
"""


@pytest.mark.parametrize(
    "wait",
    [
        "device.task('TASK_ID_APPLICATION_DEBUG_VAL', timeout=3600)",
        "device.stream('TASK_ID_APPLICATION_DEBUG_VAL', timeout=3600)",
        "list(broadcasts)",
        "device.wait_for(kelhandler.State.LOST)",
    ],
)
def test_ctrl_c_ends_a_wait(wait: str) -> None:
    command = [sys.executable, "-B", "-c", WAIT % wait]
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True) as process:
        assert process.stdout is not None
        assert process.stdout.readline() == "waits\n"
        begin = time.monotonic()
        process.send_signal(signal.SIGINT)
        assert process.communicate(timeout=60)[0] == "interrupted\n"
        assert process.returncode == 0
        assert time.monotonic() - begin < 30
