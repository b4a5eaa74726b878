# SPDX-License-Identifier: MIT
"""Captures of clients at work, as tshark shows them with the dissector.

    captures_test.py NAME DISSECTOR KELCTL CLIENT [EMULATOR...]

NAME is one of the tests below. KELCTL and CLIENT are programs; EMULATOR runs them where the system does not.
"""

import json
import os
import random
import re
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

import pcapng

NAME, DISSECTOR, KELCTL, CLIENT, *EMULATOR = sys.argv[1:]

VAL = "TASK_ID_APPLICATION_DEBUG_VAL"
REF = "TASK_ID_APPLICATION_DEBUG_REF"
STREAMER = "TASK_ID_APPLICATION_DEBUG_STREAMER"
BROADCASTER = "TASK_ID_APPLICATION_DEBUG_BROADCASTER"

REQUESTS = "kel.kind == 3 && kel.agent == 6"
RESPONSES = "kel.kind == 5"


class Captures(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="kel-test-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.file = self.folder / "some.pcapng"
        self.status = 0

    def run_program(self, program, *arguments, capture="some.pcapng", scenario=""):
        """Runs a program with its traffic captured. Returns what it printed, errors included."""
        result = subprocess.run(
            [*EMULATOR, program, *arguments],
            cwd=self.folder,
            env={**os.environ, "SLUICEHUB_CAPTURE": capture, "SLUICEHUB_SCENARIO": scenario},
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
        )
        self.assertEqual(result.returncode, self.status, result.stdout + result.stderr)
        return result.stdout + result.stderr

    def kelctl(self, *arguments, **keywords):
        return self.run_program(KELCTL, *arguments, **keywords)

    def tshark(self, *arguments, file=None):
        """What tshark prints. It ends well also when a script fails, so that its errors are looked at, too."""
        result = subprocess.run(
            ["tshark", "-X", f"lua_script:{DISSECTOR}", "-r", file or self.file, *arguments],
            # Nobody's own settings and scripts, and a fixed language.
            env={**os.environ, "WIRESHARK_CONFIG_DIR": str(self.folder), "LC_ALL": "C.UTF-8"},
            capture_output=True,
            text=True,
        )
        complaints = [line for line in result.stderr.splitlines() if not line.startswith("Running as user")]
        self.assertEqual(complaints, [])
        self.assertNotIn("Lua Error", result.stdout)
        self.assertEqual(result.returncode, 0)
        return result.stdout

    def rows(self, which, *fields, more=()):
        """The fields of each packet that a display filter chooses. All of a packet's values have commas between."""
        wanted = [word for field in fields for word in ("-e", field)]
        lines = self.tshark("-2", "-Y", which, "-T", "fields", *wanted, *more).splitlines()
        return [tuple(line.split("\t")) for line in lines]

    def expect_well_formed(self):
        self.assertEqual(self.rows("_ws.malformed || kel.expert.malformed || _ws.lua.error", "frame.number"), [])

    # ---- What a client does ----

    def test_the_demo_shows_each_of_its_exchanges(self):
        self.kelctl("demo")
        self.expect_well_formed()
        sent = [task for task, in self.rows(REQUESTS, "kel.task")]
        self.assertEqual(sent[:3], [VAL, REF, "TASK_ID_TRACE_UTIL_PATH_GET"])
        self.assertEqual(sent[3:67], [VAL] * 64)
        self.assertEqual(sent[67:69], [BROADCASTER, STREAMER])
        self.assertEqual(sent[-2:], ["TASK_ID_HOST_FRAMEWORK_SHUTDOWN", VAL])
        answered = self.rows(f"{RESPONSES} && kel.class", "kel.request_in", "kel.response_time")
        self.assertTrue(all(request and float(time) > 0 for request, time in answered))
        names = [task for task, in self.rows("kel.tui.target == 5", "kel.task")]
        self.assertEqual(names, [BROADCASTER] * 3)

    def test_a_val_task_is_seen_with_its_three_values(self):
        self.kelctl("send", VAL, "--val", "7", "8", "9")
        self.expect_well_formed()
        fields = ["frame.number", "kel.connection", "kel.agent", "kel.task", "kel.tui", "kel.tui.target"]
        fields += ["kel.tui.type", "kel.seq", "kel.socket", "kel.payload_size", "kel.value"]
        fields += ["kel.response_in", "kel.reply_in"]
        self.assertEqual(
            self.rows(REQUESTS, *fields),
            [("4", "1", "6", VAL, "0x00038240", "8", "0", "0", "0", "12", "7,8,9", "6", "5")],
        )
        fields = ["frame.number", "kel.row", "kel.task", "kel.class", "kel.seq", "kel.error", "kel.value"]
        fields += ["kel.request_in"]
        self.assertEqual(self.rows(RESPONSES, *fields), [("6", "0", VAL, "0", "0", "0", "7,8,9", "4")])
        reply = ["kel.status", "kel.reply", "kel.l4_status", "kel.l4_error", "kel.request_in"]
        self.assertEqual(self.rows("kel.kind == 4 && kel.agent == 6", *reply), [("0", "0", "0", "0", "4")])

    def test_a_ref_task_is_seen_with_its_bytes_and_its_text(self):
        self.kelctl("send", REF, "--text", "Hello")
        self.assertEqual(
            self.rows("kel.payload", "kel.tui.type", "kel.payload", "kel.text"), [("1", "48656c6c6f00", "Hello")] * 2
        )

    def test_bytes_that_are_no_text_have_none(self):
        self.kelctl("send", REF, "--hex", "0102ff")
        self.assertEqual(self.rows("kel.payload", "kel.payload", "kel.text"), [("0102ff", "")] * 2)

    def test_a_stream_is_seen_by_its_classes(self):
        self.kelctl("stream", STREAMER, "--count", "3", "--interval", "1")
        self.expect_well_formed()
        seen = self.rows(RESPONSES, "kel.class", "kel.value", "kel.request_in")
        self.assertEqual([kind for kind, _, _ in seen], ["0", "1", "1", "1", "2"])
        self.assertEqual([values for _, values, _ in seen[1:]], [f"{i},3,1" for i in range(4)])
        self.assertEqual({request for _, _, request in seen}, {"4"})

    def test_broadcasts_have_their_tasks_name_and_no_request(self):
        self.kelctl("listen", "--trigger", "--count", "3")
        self.expect_well_formed()
        seen = self.rows("kel.tui.target == 5", "kel.task", "kel.value", "kel.seq", "kel.request_in")
        self.assertEqual([values.split(",")[0] for _, values, _, _ in seen], ["0", "1", "2"])
        self.assertEqual({(task, number, request) for task, _, number, request in seen}, {(BROADCASTER, "", "")})

    def test_a_broadcast_that_may_be_of_several_tasks_has_all_their_names(self):
        self.kelctl("listen", "--trigger", "--count", "1")
        (self.folder / "own.csv").write_text("OTHER, 2, 18, KEL_FIRMWARE, 3, VAL, 213570, 0x34242\n"
                                             "ONE, 2, 18, KEL_UPPER_DSPS, 3, VAL, 229954, 0x38242\n")
        own_table = ["-o", f"kel.table:{self.folder / 'own.csv'}"]
        self.assertEqual(self.rows("kel.tui.target == 5", "kel.task", more=own_table), [("OTHER or ONE",)])

    def test_response_times_are_summed_up_by_task(self):
        self.kelctl("ping", "--count", "5", "--interval", "0")
        head, *rows = self.tshark("-q", "-z", "kel,times").splitlines()
        self.assertRegex(head, r"answers +min +mean +50% +99% +max$")
        times = sorted(1e3 * float(time) for time, in self.rows(f"kel.task == \"{VAL}\"", "kel.response_time") if time)
        task, count, *figures = rows[0].split()
        self.assertEqual((task, count), (VAL, "5"))
        expected = [times[0], sum(times) / 5, times[2], times[4], times[4]]
        for figure, time in zip(figures, expected, strict=True):
            self.assertAlmostEqual(float(figure), time, delta=0.000501)  # half of the last digit that is shown

    def test_the_profile_tells_packets_apart_by_their_colours(self):
        self.kelctl("demo")
        shutil.copytree(Path(DISSECTOR).parent / "profiles", self.folder / "profiles")
        colours = lambda: {name for name, in self.rows("kel", "frame.coloring_rule.name", more=["-C", "KEL", "--color"])}
        # Whether the demo's last requests are answered, and its loss is told, before it ends is a matter of time.
        self.assertEqual(colours() - {"Refused or failed", "No answer", "Link lost"},
                         {"Task", "Answer", "Stream", "Broadcast", "Link and sockets"})
        columns = self.tshark("-C", "KEL", "-Y", REQUESTS).splitlines()[0].split()
        self.assertEqual(columns[2:7], ["host", "#1", "→", "L4msgProxy", VAL])
        self.run_program(CLIENT, "lost_link")
        self.assertIn("Link lost", colours())

    def test_live_packets_are_seen_while_the_program_runs(self):
        # tshark takes no extcaps of root's.
        folder, pipe = self.folder, self.folder / "pipe"
        shutil.copytree(Path(DISSECTOR).parent / "extcap", folder / "extcap")
        shutil.copy(DISSECTOR, folder / "kel.lua")
        somebody = []
        if os.geteuid() == 0:
            somebody = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
            for path in [folder, *folder.rglob("*")]:
                os.chown(path, 65534, 65534)
        tshark = subprocess.Popen(
            [*somebody, "tshark", "-l", "-i", "kelhandler", "-o", f"extcap.kelhandler.pipe:{pipe}", "-X",
             f"lua_script:{folder / 'kel.lua'}"],
            env={**os.environ, "WIRESHARK_CONFIG_DIR": str(folder), "WIRESHARK_EXTCAP_DIR": str(folder / "extcap"),
                 "LC_ALL": "C.UTF-8"},
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.addCleanup(tshark.kill)
        while tshark.poll() is None and not pipe.is_fifo():
            time.sleep(0.05)
        ping = subprocess.Popen([KELCTL, "ping", "--interval", "10"], cwd=folder, stdout=subprocess.DEVNULL,
                                env={**os.environ, "SLUICEHUB_CAPTURE": str(pipe)})
        self.addCleanup(ping.kill)
        answers = (line for line in tshark.stdout if f"{VAL} #0 ACK" in line)
        self.assertTrue(next(answers), "an answer is shown while the program runs")
        self.assertIsNone(ping.poll())
        ping.send_signal(signal.SIGINT)
        self.assertEqual(ping.wait(), 0)
        self.assertIn("Disconnected", tshark.communicate()[0].splitlines()[-1])
        self.assertEqual(tshark.returncode, 0)
        self.assertFalse(pipe.exists())

    def test_the_packet_list_reads_like_a_story(self):
        self.kelctl("send", VAL, "--val", "7", "8", "9")
        columns = ["_ws.col.Source", "_ws.col.Destination", "_ws.col.Protocol", "_ws.col.Info"]
        story = self.rows("frame", *columns)
        self.assertEqual(story[3], ("host #1", "L4msgProxy", "KEL", f"{VAL} #0 7 8 9"))
        self.assertEqual(story[4], ("L4msgProxy", "host #1", "KEL", "Taken"))
        self.assertEqual([info.split(" (")[0] for *_, info in story],
                         ["Connect", "Acquire socket for row 0", "Socket 0", f"{VAL} #0 7 8 9", "Taken",
                          f"{VAL} #0 ACK 7 8 9", "Release socket 0", "Taken", "Disconnect", "Disconnected, reason 17"])

    def test_a_refused_task_is_marked(self):
        (self.folder / "own.csv").write_text("MY_TASK,  0, 18, KEL_UPPER_DSPS, 3, VAL, 233471, 0x38fff\n")
        self.status = 1
        self.kelctl("send", "MY_TASK", "--table", "own.csv")
        self.assertEqual(
            self.rows("kel.expert.refused", "kel.l4_status", "kel.l4_error", "kel.request_in"), [("1", "513", "4")]
        )
        self.assertEqual(self.rows("kel.expert.unknown_task", "kel.task"), [("task 0x38fff",)])
        self.assertEqual(self.rows("kel.expert.unanswered", "frame.number"), [])
        own_table = ["-o", f"kel.table:{self.folder / 'own.csv'}"]
        self.assertEqual(self.rows(REQUESTS, "kel.task", more=own_table), [("MY_TASK",)])

    def test_a_table_that_cannot_be_read_is_told_and_the_built_in_one_serves(self):
        self.kelctl("send", VAL)
        missing = ["-o", "kel.table:/no/such/table"]
        self.assertEqual(self.rows(f"kel.expert.no_table && {REQUESTS}", "kel.task", more=missing), [(VAL,)])

    def test_a_lost_link_is_seen_on_both_sides(self):
        self.run_program(CLIENT, "lost_link")
        self.assertEqual(self.rows("kel.expert.link_lost", "kel.event", "kel.reason", "frame.comment"),
                         [("0", "42", "the link was lost")])
        self.assertEqual(self.rows("kel.expert.failed", "kel.status"), [("2",)] * 2)

    def test_each_oddity_is_marked(self):
        self.run_program(CLIENT, "oddities")

        def marked(name):
            return self.rows(f"kel.expert.{name}", "kel.seq")

        self.assertEqual(marked("error"), [("1",)])
        self.assertEqual(marked("unanswered"), [("2",)])
        self.assertEqual(marked("refused"), [("",), ("",)])
        self.assertEqual(marked("unmatched"), [("4",), ("4",)])
        self.assertEqual(marked("repeated"), [("5",), ("5",)])
        self.assertEqual(marked("after_end"), [("5",)])
        self.assertEqual(marked("wrong_type"), [("5",), ("4",)])
        self.assertEqual(marked("unknown_message"), [("",), ("",)])
        self.assertEqual(len(marked("malformed")), 2)
        self.assertEqual(self.rows("frame.comment contains \"rule\"", "frame.comment"),
                         [("rule 1: error code 77",), ("rule 2: no response",)])

    def test_each_field_is_told_in_the_documents(self):
        script = Path(DISSECTOR).read_text()
        fields = re.findall(r'ProtoField\.\w+\("([^"]+)"', script)
        fields += ["kel.expert." + name for name in re.findall(r'Expert\("(\w+)"', script)]
        page = (Path(__file__).parents[2] / "docs" / "captures.md").read_text(encoding="utf-8")
        self.assertGreater(len(fields), 40)
        self.assertEqual([name for name in fields if f"`{name}`" not in page], [])

    # ---- The file ----

    def test_a_process_that_ends_with_connections_open_leaves_a_whole_capture(self):
        self.run_program(CLIENT, "left_open")
        self.assertEqual(len(list(pcapng.packets(self.file))), 3 + 2 * 1000)
        self.assertEqual(len(self.rows(REQUESTS, "frame.number")), 1000)
        self.assertEqual(len([kind for kind, _ in pcapng.blocks(self.file.read_bytes()) if kind == 5]), 1)

    def test_a_process_that_is_gone_leaves_what_was_written(self):
        self.run_program(CLIENT, "gone")
        self.assertGreater(len(list(pcapng.packets(self.file))), 50)

    def test_each_process_may_have_a_file_of_its_own(self):
        for _ in range(2):
            self.kelctl("send", VAL, capture="of-%p.pcapng")
        self.assertEqual(len(list(self.folder.glob("of-????????.pcapng"))), 2)

    def test_a_file_that_cannot_be_opened_is_told_and_nothing_else_changes(self):
        printed = self.kelctl("send", VAL, "--val", "7", "8", "9", capture="no_such_folder/some.pcapng")
        self.assertIn("7 8 9\n", printed)
        self.assertRegex(printed, r"(?m)^SluiceHub: capture .*some\.pcapng: No such file .*; nothing is captured$")
        self.assertEqual(len(printed.splitlines()), 2)

    def test_the_variable_goes_before_the_client(self):
        self.assertEqual(self.run_program(CLIENT, "own_capture").strip(), "refused")
        self.assertTrue(self.file.exists())
        self.assertFalse((self.folder / "own.pcapng").exists())

    def test_the_same_commands_give_the_same_capture_twice(self):
        commands = {
            "val": ["send", VAL, "--val", "7", "8", "9"],
            "flight": ["send", REF, "--text", "Hi", "--in-flight", "64"],
            "stream": ["stream", STREAMER, "--count", "20", "--interval", "0"],
            "listen": ["listen", "--trigger", "--count", "3"],
        }
        for name, command in commands.items():
            for run in "ab":
                self.kelctl(*command, capture=f"{name}.{run}.pcapng")
            one, other = (self.folder / f"{name}.{run}.pcapng" for run in "ab")
            self.assertIsNone(pcapng.difference(one, other))
        self.assertIsNotNone(pcapng.difference(one, self.folder / "val.a.pcapng"))

    # ---- Scenarios ----

    def run_scenario(self, seed, capture):
        """A device that loses and delays by chance, and a client that asks it one question after the other."""
        rule = {"drop": {"probability": 0.3}, "delay": 1, "jitter": 3}
        (self.folder / "SluiceHub.json").write_text(json.dumps({"seed": seed, "rules": [rule], "capture": "own.pcapng"}))
        (self.folder / "Brel.ini").write_text("[Common]\nRxWaitTimeout=300\n")
        return self.kelctl("ping", VAL, "--count", "12", "--interval", "0", capture=capture)

    def test_a_scenario_gives_the_same_capture_twice_and_another_seed_another_one(self):
        for name, seed in {"first": 7, "again": 7, "other": 8}.items():
            self.run_scenario(seed, f"{name}.pcapng")
        first, again, other = (self.folder / f"{name}.pcapng" for name in ("first", "again", "other"))
        self.assertIsNone(pcapng.difference(first, again))
        self.assertIsNotNone(pcapng.difference(first, other))

    def test_a_scenario_may_name_the_capture(self):
        self.run_scenario(7, capture="")
        self.file = self.folder / "own.pcapng"
        lost = self.rows("kel.expert.unanswered", "kel.task")
        comments = self.rows("frame.comment contains \"no response\"", "frame.comment")
        self.assertEqual(len(lost), len(comments))
        self.assertGreater(len(lost), 0)
        self.expect_well_formed()

    def test_jitter_stays_within_its_bounds(self):
        self.run_scenario(7, capture="")
        replies = [packet.comment for packet in pcapng.packets(self.folder / "own.pcapng") if packet.comment]
        late = {int(found[1]) for found in map(re.compile(r"(\d+) ms late").search, replies) if found}
        self.assertEqual(late, {1, 2, 3, 4})

    def test_a_capture_lies_beside_its_scenario_also_if_the_program_leaves_the_folder(self):
        (self.folder / "named.json").write_text('{"capture": "own.pcapng"}')
        self.kelctl("demo", capture="", scenario="named.json")  # it works in a folder of its own
        self.assertTrue((self.folder / "own.pcapng").exists())

    def test_a_scenario_that_connects_nothing_is_marked(self):
        (self.folder / "mistaken.json").write_text('{"sede": 1}')
        self.status = 4
        self.kelctl("send", VAL, scenario="mistaken.json")
        self.assertEqual(self.rows("kel.expert.failed", "kel.kind", "_ws.col.Info"),
                         [("1", "Connect failed: Bad scenario")])

    def test_the_named_scenario_goes_before_the_usual_one(self):
        (self.folder / "SluiceHub.json").write_text('{"capture": "usual.pcapng"}')
        (self.folder / "named.json").write_text('{"capture": "own.pcapng"}')
        self.kelctl("send", VAL, capture="", scenario="named.json")
        self.assertTrue((self.folder / "own.pcapng").exists())
        self.assertFalse((self.folder / "usual.pcapng").exists())

    def test_the_variable_goes_before_the_scenario(self):
        self.run_scenario(7, capture="some.pcapng")
        self.assertTrue(self.file.exists())
        self.assertFalse((self.folder / "own.pcapng").exists())

    # ---- Packets that no stand-in would write ----

    def test_no_packet_brings_the_dissector_down(self):
        self.run_program(CLIENT, "oddities")
        known = [packet.data for packet in pcapng.packets(self.file)]
        known += [data[:size] for data in known for size in range(len(data))]
        chance = random.Random(1)
        for _ in range(1000):
            data = bytearray(chance.choice(known))
            for _ in range(chance.randrange(4)):
                if data:
                    data[chance.randrange(len(data))] = chance.choice([0, 1, 2, 3, 4, 5, 6, 7, 24, 0x7F, 0x80, 0xFF])
            known.append(bytes(data) + chance.randbytes(chance.choice([0, 0, 1, 7, 300])))
        odd = self.folder / "odd.pcap"
        with odd.open("wb") as file:
            file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, 147))
            for data in known:
                # Some of the packets say that they had more bytes.
                file.write(struct.pack("<IIII", 0, 0, len(data), len(data) + chance.choice([0, 0, 9])) + data)
        shown = self.tshark("-2", "-V", file=odd)
        self.assertNotIn("[Malformed Packet", shown)
        self.assertEqual(shown.count("KEL tasks over L5"), len(known))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], f"Captures.{NAME}"])
