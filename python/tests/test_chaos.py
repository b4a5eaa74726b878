# SPDX-License-Identifier: MIT
"""A client in a storm, for a while."""

from __future__ import annotations

import os
import subprocess
import sys

import chaos


def test_every_call_ends_once_and_in_time() -> None:
    command = [sys.executable, "-B", chaos.__file__, "30"]
    result = subprocess.run(
        command, capture_output=True, text=True, timeout=100, env={**os.environ, "KELHANDLER_RELEASE_BLOCKS": "1"}
    )
    assert result.returncode == 0, result.stdout + result.stderr
