# SPDX-License-Identifier: MIT
"""python3 -m kelhandler."""

from __future__ import annotations

from collections.abc import Mapping
from typing import Any

import kelhandler.testing
import pytest
from kelhandler.__main__ import main

VAL = "TASK_ID_APPLICATION_DEBUG_VAL"
REF = "TASK_ID_APPLICATION_DEBUG_REF"
STREAMER = "TASK_ID_APPLICATION_DEBUG_STREAMER"


@pytest.mark.parametrize(
    "words, printed",
    [
        (["send", VAL, "--val", "7", "8", "0x10"], "7 8 16\n"),
        (["send", REF, "--hex", "00ff 10"], "00 ff 10\n"),
        (["send", REF, "--text", "hi"], "68 69\n"),
        (["stream", STREAMER, "--val", "5", "1", "0", "--count", "2"], "0 5 1\n1 5 1\n"),
        (["stream", STREAMER, "--val", "2", "60000", "0", "--for", "0.1"], "0 2 60000\n"),
        (["listen", "--for", "0.01"], ""),
    ],
)
def test_what_is_done_is_printed(words: list[str], printed: str, capsys: pytest.CaptureFixture[str]) -> None:
    assert main(words) == 0
    assert capsys.readouterr().out == printed


def test_broadcasts_are_printed(capsys: pytest.CaptureFixture[str]) -> None:
    scenario = {"broadcasts": [{"task": VAL, "at": 100, "payload": {"values": [1, 2, 3]}}]}
    with kelhandler.testing.stand_in(scenario):
        assert main(["listen", "--count", "1"]) == 0
    assert capsys.readouterr().out == "UNKNOWN_TASK 1 2 3\n"


@pytest.mark.parametrize(
    "status, words, scenario",
    [
        (1, ["send", VAL], {"rules": [{"refuse": {"L4status": 1}}]}),
        (2, ["send", VAL, "--text", "hi"], {}),
        (3, ["--timeout", "0.1", "send", VAL], {"rules": [{"drop": True}]}),
        (4, ["send", VAL], {"socketRefusals": [{}]}),
        (5, ["send", "NO_SUCH_TASK"], {}),
    ],
)
def test_failures_have_statuses_of_their_own(
    status: int, words: list[str], scenario: Mapping[str, Any], capsys: pytest.CaptureFixture[str]
) -> None:
    with kelhandler.testing.stand_in(scenario):
        assert main(words) == status
    assert capsys.readouterr().err.startswith("kelhandler: ")


@pytest.mark.parametrize("words", [[], ["sned"], ["send"], ["send", VAL, "--val", "1", "2", "4294967296"]])
def test_what_is_not_understood_has_status_2(words: list[str], capsys: pytest.CaptureFixture[str]) -> None:
    with pytest.raises(SystemExit) as end:
        main(words)
    assert end.value.code == 2
