# SPDX-License-Identifier: MIT
"""The stand-in with scenarios, and what tests get of it."""

from __future__ import annotations

import pathlib
import subprocess
import sys
import time

import kelhandler
import kelhandler.testing
import pytest

VAL = "TASK_ID_APPLICATION_DEBUG_VAL"


def answer() -> tuple[int, int, int]:
    with kelhandler.connect() as device:
        return device.task(VAL, values=(1, 2, 3)).values


def test_scenarios_follow_one_another_and_leave_nothing() -> None:
    for values in ([7, 8, 9], [4, 5, 6]):
        with kelhandler.testing.stand_in({"rules": [{"task": VAL, "reply": {"values": values}}]}):
            assert answer() == tuple(values)
    assert answer() == (1, 2, 3)


def test_a_scenario_may_be_a_file(tmp_path: pathlib.Path) -> None:
    path = tmp_path / "scenario.json"
    path.write_text('{"rules": [{"reply": {"values": [7, 8, 9]}}]}')
    with kelhandler.testing.stand_in(path):
        assert answer() == (7, 8, 9)


def test_a_mistaken_scenario_is_told() -> None:
    with pytest.raises(ValueError), kelhandler.testing.stand_in({"rulse": []}):
        pass
    with kelhandler.testing.stand_in():
        assert answer() == (1, 2, 3)


@pytest.mark.kel_scenario({"rules": [{"task": VAL, "reply": {"values": [7, 8, 9]}}]}, timeout=5.0)
def test_a_marker_brings_a_scenario(kel_device: kelhandler.Device) -> None:
    assert kel_device.task(VAL).values == (7, 8, 9)


def test_without_a_marker_the_device_is_quiet(kel_device: kelhandler.Device) -> None:
    assert kel_device.task(VAL, values=(1, 2, 3)).values == (1, 2, 3)


def test_the_device_side_broadcasts(
    kel_device: kelhandler.Device, kel_stand_in: kelhandler.testing.StandIn
) -> None:
    broadcasts = kel_device.broadcasts(sequence_word=5)
    assert kel_stand_in.connections() == 1
    kel_stand_in.broadcast(0x5240, b"\x01\0\0\0\x02\0\0\0\x03\0\0\0", sequence_word=5)
    broadcast = broadcasts.read(10)
    assert broadcast is not None and broadcast.values == (1, 2, 3)
    assert broadcast.sequence_word == 5


@pytest.mark.kel_scenario({"rules": [{"drop": True}]})
def test_a_lost_answer_ends_in_time(kel_device: kelhandler.Device) -> None:
    begin = time.monotonic()
    with pytest.raises(kelhandler.NoAnswer):
        kel_device.task(VAL, timeout=0.1)
    assert 0.1 <= time.monotonic() - begin < 5


@pytest.mark.kel_scenario({"rules": [{"refuse": {"L4status": 1}}]})
def test_a_refusal_is_told(kel_device: kelhandler.Device) -> None:
    with pytest.raises(kelhandler.Refused) as refused:
        kel_device.task(VAL)
    assert refused.value.code != 0


@pytest.mark.kel_scenario({"rules": [{"delay": 60000}]}, max_in_flight=2, max_queued=1)
def test_what_finds_no_room_is_refused_at_once(kel_device: kelhandler.Device) -> None:
    calls = [kel_device.start(VAL) for _ in range(3)]
    with pytest.raises(kelhandler.NoNumber):
        kel_device.task(VAL)
    assert calls[0].cancel()
    with pytest.raises(kelhandler.Cancelled):
        calls[0].result()
    assert not calls[0].cancel()
    assert not calls[1].wait(0.01)


@pytest.mark.kel_scenario({"rules": [{"drop": True}]}, heartbeat=VAL, heartbeat_interval=0.05, heartbeat_misses=2)
def test_a_link_without_a_sign_of_life_is_lost(kel_device: kelhandler.Device) -> None:
    stream = kel_device.broadcasts()
    call = kel_device.start(VAL)
    with pytest.raises(kelhandler.LinkLost):
        call.result()
    assert kel_device.wait_for(kelhandler.State.LOST, 10)
    assert stream.reason is kelhandler.End.NONE


@pytest.mark.kel_scenario(
    {"linkLosses": [{"at": 100, "times": 1}]}, heartbeat=VAL, heartbeat_interval=0.05, reconnect=True, first_pause=0.01
)
def test_a_stream_that_loses_the_link_says_so(kel_device: kelhandler.Device) -> None:
    with pytest.raises(kelhandler.LinkLost):
        for _ in kel_device.stream("TASK_ID_APPLICATION_DEBUG_STREAMER", values=(1000000, 10, 0)):
            pass
    assert kel_device.wait_for(kelhandler.State.CONNECTED, 10)
    assert kel_device.statistics().losses == 1


@pytest.mark.kel_scenario({"socketRefusals": [{}]})
def test_a_refused_connect_is_told(kel_stand_in: kelhandler.testing.StandIn) -> None:
    with pytest.raises(kelhandler.NotConnected, match="connecting failed"):
        kelhandler.connect()
    with pytest.raises(kelhandler.NotConnected):
        kelhandler.connect(reconnect=True, first_pause=0.01, connect_timeout=0.1)


def test_a_failed_test_leaves_its_capture(tmp_path: pathlib.Path) -> None:
    tests = tmp_path / "test_two.py"
    tests.write_text(
        f"""
def test_one(kel_device):
    kel_device.task("{VAL}", values=(1111, 0, 0))

def test_two(kel_device):
    kel_device.task("{VAL}", values=(2222, 0, 0))
    assert False
"""
    )
    folder = tmp_path / "captures"
    plugins = ["-p", "no:cacheprovider", "-p", "kelhandler.pytest_plugin"]
    command = [sys.executable, "-B", "-m", "pytest", "-q", *plugins, f"--kel-captures={folder}", str(tests)]
    run = subprocess.run(command, capture_output=True, text=True)
    assert "1 failed, 1 passed" in run.stdout
    assert f"capture: {folder}/test_two.pcapng" in run.stdout
    assert sorted(path.name for path in folder.iterdir()) == ["all.pcapng", "test_two.pcapng"]
    capture = (folder / "test_two.pcapng").read_bytes()
    assert (2222).to_bytes(4, "little") in capture
    assert (1111).to_bytes(4, "little") not in capture
    assert (1111).to_bytes(4, "little") in (folder / "all.pcapng").read_bytes()
