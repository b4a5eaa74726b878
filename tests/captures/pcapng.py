# SPDX-License-Identifier: MIT
"""Reads the captures of the stand-in, and tells whether two are the same.

    pcapng.py CAPTURE CAPTURE

Two captures are the same if each connection has the same calls with the same replies, and the same deliveries to its
handlers, each in the same order and with the same comments. Times do not count, nor how calls and deliveries fall
between each other, which is up to the threads.
"""

import struct
import sys
from collections import namedtuple
from pathlib import Path

PACKET_BLOCK = 6
COMMENT, FLAGS = 1, 2
MESSAGE, EVENT = 5, 6  # kinds of packets

Packet = namedtuple("Packet", "comment flags original_size data")


def blocks(data):
    """The type and the body of each block that is whole."""
    at = 0
    while at + 12 <= len(data):
        kind, length = struct.unpack_from("<II", data, at)
        if at + length > len(data):
            return
        yield kind, data[at + 8 : at + length - 4]
        at += length


def options(data):
    at = 0
    while at + 4 <= len(data):
        code, length = struct.unpack_from("<HH", data, at)
        yield code, data[at + 4 : at + 4 + length]
        at += 4 + (length + 3) // 4 * 4


def packets(path):
    """The packets of a capture, in their order."""
    for kind, body in blocks(Path(path).read_bytes()):
        if kind == PACKET_BLOCK:
            _, _, _, size, original_size = struct.unpack_from("<5I", body)
            extra = dict(options(body[20 + (size + 3) // 4 * 4 :]))
            yield Packet(extra.get(COMMENT, b"").decode(), extra[FLAGS], original_size, body[20 : 20 + size])


def lanes(path):
    """The packets of a capture by connection and by who has them come: its calls, or the device."""
    found = {}
    for packet in packets(path):
        kind, _, connection = struct.unpack_from("<BHI", packet.data, 1)
        lane = "deliveries" if kind in (MESSAGE, EVENT) else "calls"
        found.setdefault((connection, lane), []).append(packet)
    return found


def difference(one, other):
    """The first difference of two captures, in words; None if there is none."""
    ours, theirs = lanes(one), lanes(other)
    for lane in sorted(ours.keys() | theirs.keys()):
        here, there = ours.get(lane, []), theirs.get(lane, [])
        place = f"connection {lane[0]}, {lane[1]}"
        for number, (a, b) in enumerate(zip(here, there), 1):
            if a != b:
                return f"{place}, packet {number}:\n  {a}\n  {b}"
        if len(here) != len(there):
            return f"{place}: {len(here)} packets, and {len(there)}"
    return None


def main(one, other):
    found = difference(one, other)
    print(found or "the same, times aside")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
