# SPDX-License-Identifier: MIT
"""A stored run of the benchmarks beside a later one, as bench/compare.py shows them.

    compare_test.py COMPARE TEST
"""

import json
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

COMPARE = sys.argv.pop(1)


def a_run(**rounds):
    """The file of a run with these rounds, in nanoseconds, of "task" beside "limit" and "queue"."""
    rows = []
    for name, times in rounds.items():
        rows += [{"name": f"{name}/iterations:9/real_time", "run_type": "iteration", "real_time": ns} for ns in times]
        rows.append({"name": f"{name}/iterations:9/real_time_median", "run_type": "aggregate", "real_time": 1e9})
    return {"context": {"date": "today", "task beside limit": "", "task beside queue": ""}, "benchmarks": rows}


class Compare(unittest.TestCase):
    def lines(self, stored, later):
        """The words of each line behind the two of the head."""
        with tempfile.TemporaryDirectory() as folder:
            files = [Path(folder, name) for name in ("stored.json", "later.json")]
            for file, run in zip(files, (stored, later)):
                file.write_text(json.dumps(run), encoding="utf-8")
            done = subprocess.run([COMPARE, *files], capture_output=True, text=True, check=True)
        return [line.split() for line in done.stdout.splitlines()[2:]]

    def test_compares_ratios_and_not_times(self):
        stored = a_run(task=[100, 101, 99], limit=[50, 50, 50])
        later = a_run(task=[900, 909, 891], limit=[300, 300, 300])
        self.assertEqual(self.lines(stored, later), [["task", "limit", "2.00", "3.00", "+50%"]])

    def test_calls_noise_what_is_smaller_than_the_spread_of_the_rounds(self):
        stored = a_run(task=[100, 100, 160], limit=[50, 50, 50])
        later = a_run(task=[150, 150, 150], limit=[50, 50, 50])
        self.assertEqual(self.lines(stored, later), [["task", "limit", "2.00", "3.00", "+50%", "(noise)"]])

    def test_takes_the_time_of_one_where_a_round_does_several(self):
        run = a_run(task=[800], limit=[10])
        run["benchmarks"][0]["items_per_second"] = 5e7
        self.assertEqual(self.lines(run, run), [["task", "limit", "2.00", "2.00", "+0%", "(noise)"]])

    def test_shows_what_the_stored_run_lacks_and_leaves_out_what_the_later_one_lacks(self):
        later = a_run(task=[100], queue=[50])
        self.assertEqual(self.lines(a_run(limit=[50]), later), [["task", "queue", "-", "2.00"]])


if __name__ == "__main__":
    unittest.main()
