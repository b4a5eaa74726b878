#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Tells what of the library's own sources the tests reached, and fails if that is too little.

usage: report.py SOURCE_DIR BUILD_DIR

BUILD_DIR holds the instrumented programs and, under profiles/, what they counted. The table goes to standard output.
BUILD_DIR/uncovered.txt gets each line and branch that no test reached, with the reason where unreachable.txt knows one.
"""

import collections
import json
import pathlib
import subprocess
import sys

LEAST = {"lines": 98.0, "branches": 96.0}  # percent


class Counts:
    """How many there are of something, and how many of them ran."""

    def __init__(self):
        self.found = self.hit = 0

    def add(self, ran):
        self.found += 1
        self.hit += bool(ran)

    def percent(self):
        return 100.0 * self.hit / self.found if self.found else 100.0


def run(*command):
    """The output of a command. What it has to say besides is of interest only if it fails."""
    result = subprocess.run(command, capture_output=True, text=True)
    if result.returncode != 0:
        sys.exit(f"{command[0]} failed: {result.stderr}")
    return result.stdout


def instrumented(build):
    """The programs and libraries that carry a map from counters to sources."""
    for path in sorted(build.rglob("*")):
        if not path.is_file() or path.is_symlink() or "CMakeFiles" in path.parts:
            continue
        with path.open("rb") as file:
            if file.read(4) == b"\x7fELF" and b"__llvm_covmap" in file.read() and path.suffix != ".o":
                yield path


def export(source, build):
    """Clang's record of all files under src/: lines in the form of lcov, and branches in that of JSON."""
    profile = build / "merged.profdata"
    run("llvm-profdata", "merge", "-sparse", "-o", str(profile), *map(str, (build / "profiles").glob("*.profraw")))
    first, *others = instrumented(build)
    objects = [word for path in others for word in ("-object", str(path))]
    command = ["llvm-cov", "export", f"-instr-profile={profile}", str(first), *objects, str(source / "src")]
    return run(*command, "-format=lcov"), json.loads(run(*command, "-format=text", "-skip-functions"))


def read(source, build):
    """For each file how often each line ran, and how often each condition went either way, both by line number.

    What a template is used for more than once counts once.
    """
    lcov, record = export(source, build)
    lines = collections.defaultdict(dict)
    for entry in lcov.splitlines():
        kind, _, rest = entry.partition(":")
        if kind == "SF":
            current = lines[pathlib.Path(rest).relative_to(source)]
        elif kind == "DA":
            number, count = rest.split(",")[:2]
            current[int(number)] = int(count)
    branches = collections.defaultdict(lambda: collections.defaultdict(lambda: [0, 0]))
    for entry in record["data"][0]["files"]:
        conditions = branches[pathlib.Path(entry["filename"]).relative_to(source)]
        for *place, ran_true, ran_false in (branch[:6] for branch in entry["branches"]):
            conditions[tuple(place)][0] += ran_true
            conditions[tuple(place)][1] += ran_false
    for file, ran in sorted(lines.items()):
        ways = collections.defaultdict(list)
        for place, counts in branches[file].items():
            ways[place[0]] += counts
        yield file, ran, ways


def reasons():
    """What cannot be reached, as FILE | TEXT OF THE LINE | REASON."""
    known = {}
    for row in (pathlib.Path(__file__).parent / "unreachable.txt").read_text().splitlines():
        if row and not row.startswith("#"):
            file, rest = row.split(" | ", 1)
            text, reason = rest.rsplit(" | ", 1)  # a line of the source may hold that mark itself
            known[file.strip(), text.strip()] = reason.strip()
    return known


def main():
    source, build = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
    known = reasons()
    used = set()
    folders = collections.defaultdict(lambda: {"lines": Counts(), "branches": Counts()})
    total = {"lines": Counts(), "branches": Counts()}
    with (build / "uncovered.txt").open("w") as uncovered:
        for file, lines, branches in read(source, build):
            text = (source / file).read_text().splitlines()

            def tell(number, what):
                key = (str(file), text[number - 1].strip())
                used.add(key)
                uncovered.write(f"{file}:{number}: {what}: {key[1]}\n")
                if key in known:
                    uncovered.write(f"    {known[key]}\n")

            for counts in (folders[str(file.parent)], total):
                for ran in lines.values():
                    counts["lines"].add(ran)
                for ways in branches.values():
                    for ran in ways:
                        counts["branches"].add(ran)
            for number, ran in sorted(lines.items()):
                if not ran:
                    tell(number, "line")
                elif 0 in branches.get(number, []):
                    tell(number, f"{branches[number].count(0)} of {len(branches[number])} branches")

    print(f"{'folder':<24}{'lines':>8}{'reached':>9}{'%':>8}{'branches':>11}{'reached':>9}{'%':>8}")
    for name, counts in [*sorted(folders.items()), ("all", total)]:
        row = "".join(f"{c.found:>{width}}{c.hit:>9}{c.percent():>8.1f}"
                      for c, width in ((counts["lines"], 8), (counts["branches"], 11)))
        print(f"{name:<24}{row}")

    print("\nNot reached, and why it cannot be:")
    for (file, line), reason in known.items():
        print(f"  {file}: {line}\n    {reason}")
    stale = [key for key in known if key not in used]
    for file, line in stale:
        print(f"unreachable.txt names what is reached, or is no more: {file}: {line}", file=sys.stderr)
    low = [what for what, least in LEAST.items() if total[what].percent() < least]
    for what in low:
        print(f"{total[what].percent():.1f} % of the {what} are reached; at least {LEAST[what]} % have to be",
              file=sys.stderr)
    sys.exit(1 if low or stale else 0)


if __name__ == "__main__":
    main()
