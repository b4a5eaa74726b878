#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Sets a stored run of kel_bench beside a later one: compare.py STORED LATER.

Both are files of --benchmark_out. What is compared is the ratio of each benchmark to the one that it stands beside in
the same run, since machines differ and one machine differs from day to day. A change counts where it is larger than the
rounds of the two benchmarks differ among themselves.
"""

import json
import re
import statistics
import sys


class Run:
    def __init__(self, file_name):
        with open(file_name, encoding="utf-8") as file:
            content = json.load(file)
        self.date = content["context"]["date"]
        self.pairs = [key.split(" beside ") for key in content["context"] if " beside " in key]
        self.rounds = {}
        for row in content["benchmarks"]:
            if row["run_type"] != "iteration" or row.get("error_occurred"):
                continue
            name = re.sub("/iterations:.*", "", row["name"])
            rate = row.get("items_per_second")
            self.rounds.setdefault(name, []).append(1e9 / rate if rate else row["real_time"])

    def ratio(self, subject, beside):
        """None if one of the two was not run."""
        if subject not in self.rounds or beside not in self.rounds:
            return None
        return statistics.median(self.rounds[subject]) / statistics.median(self.rounds[beside])

    def spread(self, name):
        """Between the slowest round and the fastest, as a part of the median."""
        rounds = self.rounds[name]
        return (max(rounds) - min(rounds)) / statistics.median(rounds)


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    stored, later = (Run(name) for name in sys.argv[1:])
    print(f"stored: {stored.date}, later: {later.date}")
    print(f"{'ratio of':29} {'to':26} {'stored':>8} {'later':>8} {'change':>7}")
    for subject, beside in later.pairs:
        was, now = stored.ratio(subject, beside), later.ratio(subject, beside)
        if now is None:
            continue
        line = f"{subject:29} {beside:26} {'-' if was is None else f'{was:.2f}':>8} {now:8.2f}"
        if was is not None:
            change = now / was - 1
            noise = max(run.spread(name) for run in (stored, later) for name in (subject, beside))
            line += f" {change:+7.0%}{'' if abs(change) > noise else ' (noise)'}"
        print(line)


if __name__ == "__main__":
    main()
