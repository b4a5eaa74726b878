# SPDX-License-Identifier: MIT
"""The device at the command line: python3 -m kelhandler send|stream|listen, briefly as kelctl does."""

from __future__ import annotations

import argparse
import itertools
import sys
import time

import kelhandler

DONE, REFUSED, USAGE, NO_ANSWER, NO_LINK, NO_TASK = range(6)

STATUSES: dict[type[kelhandler.Error], int] = {
    kelhandler.UnknownTask: NO_TASK,
    kelhandler.NoAnswer: NO_ANSWER,
    kelhandler.LinkLost: NO_LINK,
    kelhandler.NotConnected: NO_LINK,
    kelhandler.Closed: NO_LINK,
    kelhandler.WrongForm: USAGE,
}


def number(text: str) -> int:
    """A number in decimal digits or, with 0x, hexadecimal ones."""
    value = int(text, 0)
    if not 0 <= value <= 0xFFFFFFFF:
        raise ValueError
    return value


def line_of(payload: kelhandler.Payload) -> str:
    """A payload as it is printed."""
    if payload.form == kelhandler.Form.VAL and len(payload) == 12:
        return " ".join(map(str, payload.values))
    return bytes(payload).hex(" ")


def parser() -> argparse.ArgumentParser:
    """What is understood."""
    result = argparse.ArgumentParser(
        prog="python3 -m kelhandler",
        epilog="exit status: 0 done, 1 refused, 2 usage, 3 no answer, 4 link lost or no device, 5 no such task",
    )
    result.add_argument("--table", default="", metavar="FILE", help="task table to use")
    result.add_argument("--timeout", type=float, default=10.0, metavar="SECONDS", help="for an answer (10)")
    verbs = result.add_subparsers(dest="verb", required=True)
    for verb, text in (("send", "send a task and print the answer"), ("stream", "send a task and print its stream")):
        tasks = verbs.add_parser(verb, help=text)
        tasks.add_argument("task", help="name in the task table")
        payload = tasks.add_mutually_exclusive_group()
        payload.add_argument("--val", nargs=3, type=number, metavar="N", help="three values")
        payload.add_argument("--hex", type=bytes.fromhex, metavar="DIGITS", help="bytes")
        payload.add_argument("--text", help="a text")
    for readers in (verbs.choices["stream"], verbs.add_parser("listen", help="print broadcasts")):
        readers.add_argument("--count", type=int, metavar="N", help="end after so many")
        readers.add_argument("--for", dest="duration", type=float, metavar="SECONDS", help="end after so long")
    return result


def run(arguments: argparse.Namespace, device: kelhandler.Device) -> None:
    """Does what was asked for."""
    if arguments.verb == "listen":
        until = None if arguments.duration is None else time.monotonic() + arguments.duration
        broadcasts = device.broadcasts()
        for _ in itertools.count() if arguments.count is None else range(arguments.count):
            broadcast = broadcasts.read(None if until is None else max(0.0, until - time.monotonic()))
            if broadcast is None:
                break
            print(broadcast.task, line_of(broadcast), flush=True)
        return
    payload = arguments.hex if arguments.hex is not None else arguments.text
    if arguments.verb == "send":
        print(line_of(device.task(arguments.task, payload, values=arguments.val)))
        return
    with device.stream(arguments.task, payload, values=arguments.val, duration=arguments.duration) as stream:
        for message in itertools.islice(stream, arguments.count):
            print(line_of(message), flush=True)


def main(words: list[str] | None = None) -> int:
    """The exit status."""
    arguments = parser().parse_args(words)
    try:
        with kelhandler.connect(table=arguments.table, timeout=arguments.timeout) as device:
            run(arguments, device)
    except kelhandler.Error as error:
        print(f"kelhandler: {error}", file=sys.stderr)
        return STATUSES.get(type(error), REFUSED)
    except KeyboardInterrupt:
        return DONE
    return DONE


if __name__ == "__main__":
    sys.exit(main())
