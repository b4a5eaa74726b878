# SPDX-License-Identifier: MIT
"""What happens often leaves nothing."""

from __future__ import annotations

import os
import subprocess
import sys

import soak


def test_memory_stays_level() -> None:
    command = [sys.executable, "-B", soak.__file__, "50000"]
    done = subprocess.run(
        command, capture_output=True, text=True, timeout=100, env={**os.environ, "KELHANDLER_RELEASE_BLOCKS": "1"}
    )
    assert done.returncode == 0, done.stdout + done.stderr
