# SPDX-License-Identifier: MIT
"""The synchronous face."""

from __future__ import annotations

import itertools
import pathlib
import pickle
import threading
from array import array

import kelhandler
import numpy
import pytest

VAL = "TASK_ID_APPLICATION_DEBUG_VAL"
REF = "TASK_ID_APPLICATION_DEBUG_REF"
STREAMER = "TASK_ID_APPLICATION_DEBUG_STREAMER"


def test_a_task_is_answered() -> None:
    with kelhandler.connect() as device:
        answer = device.task(VAL, values=(7, 8, 9))
    assert answer.values == (7, 8, 9)
    assert answer.form == kelhandler.Form.VAL
    assert repr(answer) == "<Payload VAL 7 8 9>"


@pytest.mark.parametrize(
    "payload", [b"some bytes", bytearray(b"some bytes"), memoryview(b"some bytes"), array("B", b"some bytes"), "some bytes"]
)
def test_what_has_a_buffer_is_a_payload(payload: kelhandler.PayloadLike) -> None:
    with kelhandler.connect() as device:
        answer = device.task(REF, payload)
    assert bytes(answer) == b"some bytes"
    assert answer.data == b"some bytes" and answer.data.readonly
    assert answer.text == "some bytes"
    assert len(answer) == 10


def test_an_answer_is_an_array_without_a_copy_and_longer_than_its_device() -> None:
    with kelhandler.connect() as device:
        sent = numpy.arange(100, dtype="<u4")
        answer = device.task(REF, sent)
    received = numpy.frombuffer(answer.data, dtype="<u4")
    assert numpy.shares_memory(received, numpy.asarray(answer))
    del answer
    assert (received == sent).all()


def test_a_payload_that_is_none_is_told_before_anything_is_sent() -> None:
    with kelhandler.connect() as device:
        with pytest.raises(TypeError):
            device.task(VAL, b"", values=(1, 2, 3))
        with pytest.raises(TypeError):
            device.task(VAL, 5)  # type: ignore[arg-type]
        with pytest.raises(ValueError):
            device.task(VAL, values=(1, 2))
        with pytest.raises(OverflowError):
            device.task(VAL, values=(1, 2, 1 << 32))
        with pytest.raises(OverflowError):
            device.task(VAL, values=(1, 2, -1))
        with pytest.raises(BufferError):
            device.task(REF, memoryview(b"0123")[::2])
        with pytest.raises(ValueError):
            device.task(VAL, timeout=float("nan"))
        assert device.statistics().answered == 0


def test_each_cause_has_an_exception_of_its_own() -> None:
    with kelhandler.connect() as device:
        with pytest.raises(kelhandler.UnknownTask) as unknown:
            device.task("NO_SUCH_TASK")
        with pytest.raises(kelhandler.WrongForm):
            device.task(VAL, b"12345")
        with pytest.raises(kelhandler.WrongForm):
            device.task(REF, b"12345").values
    with pytest.raises(kelhandler.Closed):
        device.task(VAL)
    assert unknown.value.subject == "NO_SUCH_TASK"
    assert unknown.value.cause is kelhandler.Cause.UNKNOWN_TASK
    again = pickle.loads(pickle.dumps(unknown.value))
    assert (type(again), str(again), again.subject) == (type(unknown.value), str(unknown.value), "NO_SUCH_TASK")


def test_causes_belong_to_the_exceptions_that_python_has_for_them() -> None:
    assert issubclass(kelhandler.NoAnswer, TimeoutError)
    assert issubclass(kelhandler.LinkLost, ConnectionError)
    assert issubclass(kelhandler.NotConnected, ConnectionError)
    assert issubclass(kelhandler.WrongForm, ValueError)


def test_all_causes_have_their_exceptions() -> None:
    kinds = [kind for kind in vars(kelhandler).values() if isinstance(kind, type) and issubclass(kind, kelhandler.Error)]
    assert {kind.cause for kind in kinds if kind is not kelhandler.Error} == set(kelhandler.Cause)


def test_many_tasks_are_under_way_at_once() -> None:
    with kelhandler.connect() as device:
        calls = [device.start(VAL, values=(i, 0, 0)) for i in range(200)]
        assert [call.result().values[0] for call in calls] == list(range(200))
        assert all(call.done() for call in calls)


def test_many_threads_use_one_device() -> None:
    answers: list[int] = []
    with kelhandler.connect() as device:

        def use(first: int) -> None:
            for i in range(first, first + 100):
                answers.append(device.task(VAL, values=(i, 0, 0)).values[0])

        threads = [threading.Thread(target=use, args=(100 * i,)) for i in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
    assert sorted(answers) == list(range(400))


def test_a_task_that_wants_no_answer_is_posted() -> None:
    with kelhandler.connect() as device:
        device.post(VAL, values=(1, 2, 3))
        assert device.statistics().answered == 1
        with pytest.raises(kelhandler.UnknownTask):
            device.post("NO_SUCH_TASK")


def test_a_stream_is_read_by_a_loop() -> None:
    with kelhandler.connect() as device, device.stream(STREAMER, values=(5, 1, 0)) as stream:
        messages = list(stream)
    assert [message.values[0] for message in messages] == [0, 1, 2, 3, 4, 5]
    assert [message.is_last for message in messages] == [False] * 5 + [True]
    assert stream.reason is kelhandler.End.FINISHED
    assert stream.dropped == 0


def test_a_stream_is_read_in_batches() -> None:
    with kelhandler.connect() as device:
        batches = list(device.stream(STREAMER, values=(1000, 0, 0)).batches())
    assert [message.values[0] for batch in batches for message in batch] == list(range(1001))


def test_a_stream_is_read_one_by_one_with_a_time_limit() -> None:
    with kelhandler.connect() as device, device.stream(STREAMER, values=(2, 60000, 0)) as stream:
        first = stream.read(timeout=60)
        assert first is not None and first.values[0] == 0
        assert stream.read(timeout=0.01) is None
        assert stream.reason is kelhandler.End.NONE


def test_a_stream_ends_when_its_time_is_over_or_nothing_comes() -> None:
    with kelhandler.connect() as device:
        with device.stream(STREAMER, values=(1000, 5, 0), duration=0.1) as stream:
            assert 0 < len(list(stream)) < 1000
        assert stream.reason is kelhandler.End.DEADLINE
        with device.stream(STREAMER, values=(2, 60000, 0), idle=0.05) as stream:
            assert len(list(stream)) == 1
        assert stream.reason is kelhandler.End.IDLE


def test_messages_without_room_are_counted() -> None:
    with kelhandler.connect() as device:
        stream = device.stream(STREAMER, values=(100, 0, 0), limit=10)
        assert device.wait_for(kelhandler.State.CONNECTED)
        while device.statistics().stream_messages < 101:
            device.task(VAL)
        assert len(list(stream)) == 10
        assert stream.dropped == 91


def test_closing_the_device_ends_a_loop_of_another_thread_quietly() -> None:
    device = kelhandler.connect()
    stream = device.stream(STREAMER, values=(1000000, 1, 0))
    broadcasts = device.broadcasts()
    has_begun = threading.Event()
    counts: list[int] = []

    def read() -> None:
        count = 0
        for count, _ in enumerate(stream):
            has_begun.set()
        counts.extend((count, len(list(broadcasts))))

    thread = threading.Thread(target=read)
    thread.start()
    has_begun.wait()
    device.close()
    thread.join()
    assert counts[1] == 0
    assert stream.reason is broadcasts.reason is kelhandler.End.CLOSED


def test_broadcasts_are_read_by_a_loop() -> None:
    with kelhandler.connect() as device:
        broadcasts = device.broadcasts()
        device.task("TASK_ID_APPLICATION_DEBUG_BROADCASTER", values=(3, 1, 0))
        read = list(itertools.islice(broadcasts, 3))
    assert [broadcast.values[0] for broadcast in read] == [0, 1, 2]
    assert {broadcast.task for broadcast in read} == {"UNKNOWN_TASK"}


def test_states_are_told_in_their_order() -> None:
    changes: list[kelhandler.StateChange] = []
    with kelhandler.connect(on_state=changes.append) as device:
        assert str(device.state) == "connected"
    assert [change.state for change in changes] == ["connecting", "connected", "closed"]
    assert str(device.state) == "closed"


def test_the_table_tells_forms() -> None:
    with kelhandler.connect() as device:
        assert device.table[VAL].form is kelhandler.Form.VAL
        assert device.table[REF].form is kelhandler.Form.REF
        assert len(device.table) == 50
        assert VAL in device.table._repr_html_()
        assert "connected" in device._repr_html_()


def test_a_table_of_ones_own_is_used(tmp_path: pathlib.Path) -> None:
    table = tmp_path / "table.csv"
    with kelhandler.connect() as device:
        tui = device.table[VAL].tui
    table.write_text(f"MY_ECHO,  0, 18, KEL_UPPER_DSPS, 3, VAL, {tui}, {tui:#x}\n")
    with kelhandler.connect(table=table) as device:
        assert list(device.table) == ["MY_ECHO"]
        assert device.task("MY_ECHO", values=(7, 8, 9)).values == (7, 8, 9)


def test_the_library_has_a_version() -> None:
    assert kelhandler.library_version() == (4, 1, 0, 21, 0)
