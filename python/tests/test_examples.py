# SPDX-License-Identifier: MIT
"""The examples, as they are run."""

from __future__ import annotations

import json
import os
import pathlib
import subprocess
import sys
import xml.etree.ElementTree

EXAMPLES = pathlib.Path(__file__).parents[1] / "examples"
VAL = "TASK_ID_APPLICATION_DEBUG_VAL"


def run(example: str, *words: str, **variables: str) -> str:
    command = [sys.executable, "-B", str(EXAMPLES / example), *words]
    done = subprocess.run(command, capture_output=True, text=True, timeout=100, env={**os.environ, **variables})
    assert done.returncode == 0, done.stderr
    return done.stdout


def test_a_stream_is_plotted(tmp_path: pathlib.Path) -> None:
    picture = tmp_path / "stream.svg"
    assert run("plot_stream.py", str(picture), MPLCONFIGDIR=str(tmp_path)).startswith("501 messages")
    assert xml.etree.ElementTree.parse(picture).getroot().tag.endswith("svg")


def test_the_supervisor_comes_back_when_the_link_is_lost(tmp_path: pathlib.Path) -> None:
    scenario = tmp_path / "scenario.json"
    scenario.write_text(
        json.dumps({"linkLosses": [{"at": 800, "times": 1}], "broadcasts": [{"task": VAL, "at": 50, "every": 50}]})
    )
    lines = run("supervisor.py", "4", SLUICEHUB_SCENARIO=str(scenario)).splitlines()
    states = [line.split()[0] for line in lines[:-1]]
    assert states[:2] == ["connecting", "connected"]
    assert "lost" in states and states[-2:] == ["connected", "closed"]
    counts = json.loads(lines[-1])
    assert counts["answers"] > 100 and counts["messages"] > 10 and counts["broadcasts"] > 10
    assert len((EXAMPLES / "supervisor.py").read_text().splitlines()) < 60
