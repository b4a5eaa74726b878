# SPDX-License-Identifier: MIT
"""Packets of any kind for the dissector.

    captures.py DISSECTOR CORPUS [FOUND SECONDS]

CORPUS is a folder of captures. Without the rest, they are read through tshark as they are. With it, rounds are run for
so many seconds: packets of the corpus are changed and put into one capture, with the link type that the stand-in's have,
and tshark reads that. Whatever the packets are, the dissector promises
  - that each is shown as a packet of its own protocol, and none as one that Lua or Wireshark gave up;
  - that tshark comes to an end, with nothing to complain of.
A capture that breaks a promise is cut down to as few packets as still do, and kept in the folder FOUND.
"""

import os
import random
import struct
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "tests" / "captures"))
import pcapng  # noqa: E402

DISSECTOR, CORPUS = sys.argv[1:3]
PACKETS = 3000  # of a round
TIME_LIMIT = 120  # for a round, in seconds
LINK_TYPE = 147

# Numbers that the layout knows, and the ends of their ranges.
BYTES = [0, 1, 2, 3, 4, 5, 6, 7, 12, 16, 24, 28, 0x3F, 0x40, 0x7F, 0x80, 0xC0, 0xE8, 0xEB, 0xFF]
WORDS = [0, 1, 12, 16, 24, 1000, 1001, 1002, 1003, 0x38240, 0xB8241, 0x5000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF]


def changed(data, chance):
    data = bytearray(data)
    for _ in range(chance.choice([0, 1, 1, 2, 3, 8])):
        at = chance.randrange(len(data) + 1)
        way = chance.randrange(6)
        if way == 0:
            data[at : at + 1] = [chance.choice(BYTES)]
        elif way == 1:
            at = at // 4 * 4
            data[at : at + 4] = struct.pack("<I", chance.choice(WORDS))
        elif way == 2:
            del data[at:]
        elif way == 3:
            data[at:at] = chance.randbytes(chance.choice([1, 4, 300]))
        elif way == 4:
            del data[at : at + chance.choice([1, 2, 4, 16])]
        else:
            data[at : at + 1] = chance.randbytes(1)
    return bytes(data)


def block(kind, body):
    body += bytes(-len(body) % 4)
    size = len(body) + 12
    return struct.pack("<II", kind, size) + body + struct.pack("<I", size)


def capture(packets):
    """A capture file of pairs: bytes, and how many more there were."""
    file = block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1)) + block(1, struct.pack("<HHI", LINK_TYPE, 0, 0))
    for number, (data, more) in enumerate(packets):
        head = struct.pack("<5I", 0, 0, number * 10, len(data), len(data) + more)
        options = struct.pack("<HHIHH", pcapng.FLAGS, 4, 0, 0, 0)
        file += block(pcapng.PACKET_BLOCK, head + data + bytes(-len(data) % 4) + options)
    return file


def fault(packets, folder):
    """What breaks a promise, in words; None if nothing does."""
    name = folder / "round.pcapng"
    name.write_bytes(capture(packets))
    try:
        result = subprocess.run(
            ["tshark", "-X", f"lua_script:{DISSECTOR}", "-r", name, "-2", "-V"],
            # Nobody's own settings and scripts, and a fixed language.
            env={**os.environ, "WIRESHARK_CONFIG_DIR": str(folder), "LC_ALL": "C.UTF-8"},
            capture_output=True,
            timeout=TIME_LIMIT,
        )
    except subprocess.TimeoutExpired:
        return f"tshark has not ended after {TIME_LIMIT} seconds"
    complaints = [line for line in result.stderr.splitlines() if not line.startswith(b"Running as user")]
    if result.returncode != 0 or complaints:
        return f"tshark ended with {result.returncode}: {complaints}"
    for words in (b"Lua Error", b"[Malformed Packet", b"[Dissector bug"):
        if words in result.stdout:
            return f"tshark shows {words.decode()}"
    shown = sum(line.startswith(b"KEL tasks over L5") for line in result.stdout.splitlines())
    return None if shown == len(packets) else f"{shown} of {len(packets)} packets are shown"


def cut_down(packets, folder):
    """Fewer packets that are still at fault: parts are left out while the rest is."""
    size = len(packets) // 2
    while size:
        at = 0
        while at < len(packets):
            rest = packets[:at] + packets[at + size :]
            if rest and fault(rest, folder):
                packets = rest
            else:
                at += size
        size //= 2
    return packets


def seeds():
    found = []
    for file in sorted(Path(CORPUS).iterdir()):
        found.append([(packet.data, packet.original_size - len(packet.data)) for packet in pcapng.packets(file)])
    return found


def replay(folder):
    for packets in seeds():
        words = fault(packets, folder)
        if words:
            sys.exit(f"Failed: {words}")


def search(folder, found, seconds):
    start, runs = time.monotonic(), 0
    seed = random.randrange(1 << 32)
    chance = random.Random(seed)
    known = [data for packets in seeds() for data, _ in packets]
    while time.monotonic() - start < seconds:
        packets = [(changed(chance.choice(known), chance), chance.choice([0, 0, 0, 9])) for _ in range(PACKETS)]
        packets = [(data or b"\0", more) for data, more in packets]  # tshark asks no dissector about nothing
        words = fault(packets, folder)
        runs += PACKETS
        if words:
            file = Path(found) / f"seed_{seed}_{runs}.pcapng"
            file.write_bytes(capture(cut_down(packets, folder)))
            sys.exit(f"Failed: {words}; see {file}")
    print(f"stat::number_of_executed_units: {runs}")
    print("stat::new_units_added: 0")


with tempfile.TemporaryDirectory(prefix="kel-test-") as name:
    if len(sys.argv) == 3:
        replay(Path(name))
    else:
        search(Path(name), sys.argv[3], float(sys.argv[4]))
