#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Fails each call to the system that the library makes during a client's life, in a process each, and judges the life.

A counting run tells the distinct stacks of a family's calls. Then the first call with each stack is failed: once alone,
and once with all calls of its family that follow, until the client disarms. Without logs the same is done by the calls'
numbers, which reaches the later calls with a stack too. A life is right if it ends in time, each task is told once, and
a second life works. What the library loses on purpose is listed apart, see KEPT: such a run is known by what failed and
by what came of it, and any other is a fault.

  faults.py [--slice] [--jobs N] [--only FAMILY] PROGRAM...    PROGRAM: client_life of one build
"""
import argparse
import collections
import concurrent.futures
import functools
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

FAMILIES = ["memory", "thread", "file", "load", "object"]
LIMIT = 15  # seconds that a life may take
MESSAGES = {"silent": "40", "talkative": "2"}  # of the stream: more than a queue has room for at first, and few
SETTINGS = {
    "silent": {"Brel.ini": "[Common]\nRxWaitTimeout=1000\n"},
    "talkative": {
        "Brel.ini": "[Common]\nRxWaitTimeout=1000\nLogToConsole=1\n"
                    "RequestStructDumpFilename=request\nRequestStructPayloadDumpFilename=request.payload\n"
                    "ResponseStructDumpFilename=response\nResponseStructPayloadDumpFilename=response.payload\n",
        "Brel.registry": "[Software\\Brel\\ALogger]\nInfo=1\nWarn=1\nErr=1\n",
    },
}


class Report:
    """What a life has told of itself."""

    def __init__(self, text):
        self.results, self.told, self.stacks = {}, {}, []
        self.begun = self.through = self.left = None
        self.late, self.failed, self.stopped, self.died = [], [], [], []
        self.failures, self.done = 0, False
        for line in text.splitlines():
            word, *rest = line.split()
            if word == "begin":
                self.begun = rest[0]
            elif word == "end":
                self.results[rest[0]], self.begun = int(rest[1]), None
            elif word == "through":
                self.through, self.begun = rest[0], None
            elif word == "told":
                self.told[rest[0]] = tuple(map(int, rest[1:]))
            elif word == "late":
                self.late.append(rest[0])
            elif word == "left":
                self.left = int(rest[0])
            elif word == "stack":
                self.stacks.append((int(rest[0]), int(rest[1]), rest[2:]))
            elif word == "failed":
                self.failed.append(rest[1:])
            elif word == "failures":
                self.failures = int(rest[0])
            elif word == "stopped":
                self.stopped = rest
            elif word == "died":
                self.died = rest
            elif word == "done":
                self.done = True

    def first(self):
        """The stack of the first call that failed."""
        return self.failed[0] if self.failed else []


class Life:
    """One run of the program."""

    def __init__(self, program, setting, arguments):
        self.setting, self.arguments, self.hung = setting, arguments, False
        with tempfile.TemporaryDirectory(prefix="faults-") as folder:
            for name, text in SETTINGS[setting].items():
                with open(os.path.join(folder, name), "w", encoding="ascii") as file:
                    file.write(text)
            environment = dict(os.environ, ASAN_OPTIONS="detect_leaks=0:handle_abort=0:handle_segv=0:exitcode=99:"
                                                        "allocator_may_return_null=1")
            with open(os.path.join(folder, "out"), "wb") as out, open(os.path.join(folder, "err"), "wb") as err:
                process = subprocess.Popen([program, MESSAGES[setting], *arguments], cwd=folder, env=environment,
                                           stdin=subprocess.DEVNULL, stdout=out, stderr=err)
                try:
                    process.wait(LIMIT)
                except subprocess.TimeoutExpired:
                    self.hung = True
                    process.send_signal(signal.SIGTERM)  # tells where it stands
                    try:
                        process.wait(2)
                    except subprocess.TimeoutExpired:
                        process.kill()
                        process.wait()
            self.status = process.returncode
            with open(os.path.join(folder, "err"), encoding="utf-8", errors="replace") as err:
                self.errors = err.read()
            try:
                with open(os.path.join(folder, "report"), encoding="ascii") as report:
                    self.report = Report(report.read())
            except FileNotFoundError:
                self.report = Report("")


    def hit(self):
        """Whether anything failed."""
        return self.report.failures != 0 or self.hung or self.status != 0


class Symbols:
    """The functions and lines of a library's frames."""

    def __init__(self, program):
        self.library = os.path.join(os.path.dirname(program), "..", "lib", "libKELHandler_faults.so")
        self.known = {}

    def learn(self, stacks):
        wanted = sorted({f.rsplit("+", 1)[1] for s in stacks for f in s if "KELHandler" in f} - self.known.keys())
        if not wanted:
            return
        out = subprocess.run(["addr2line", "-afiCe", self.library], input="\n".join(wanted), text=True,
                             capture_output=True, check=True).stdout.splitlines()
        frames, address = collections.defaultdict(list), None
        lines = iter(out)
        for line in lines:
            if line.startswith("0x"):
                address = int(line, 16)
            else:
                place = next(lines)
                frames[address].append((plain(line), re.sub(r" \(discriminator.*", "", place).split("/src/")[-1]))
        for offset in wanted:
            self.known[offset] = frames[int(offset, 16)]

    def of(self, stack):
        """(function, file:line) of the library's frames, innermost first, inlined ones included."""
        return [pair for frame in stack if "KELHandler" in frame for pair in self.known[frame.rsplit("+", 1)[1]]]


def plain(function):
    """A function's name without its arguments."""
    depth, name = 0, ""
    function = re.sub(r" \[clone.*|\(anonymous namespace\)::", "", function).replace("operator<<", "operator-insert")
    for part in function:
        depth += part in "(<"
        if depth == 0:
            name += part
        depth -= part in ")>"
    return name.replace(" const", "").split(" ")[-1].removeprefix("kel::")


# ----------------------------------------------------------------------------------------------------------------------
# Judging
# ----------------------------------------------------------------------------------------------------------------------

def faults_of(life, stood=()):
    """All that is wrong with a run: (kind, words). `stood`: the frames in which its first thread was stopped."""
    report, results, found = life.report, life.report.results, []
    sanitizer = re.search(r".*(AddressSanitizer:|runtime error:).*", life.errors)
    if sanitizer:
        found.append(("crash", sanitizer[0]))
    elif report.died or (life.status != 0 and not life.hung):
        found.append(("crash", f"status {life.status} in {report.begun or 'between calls'}"))
    if report.through:
        found.append(("crash", f"an exception came through {report.through}"))
    if life.hung:
        functions = own([frame for frame in stood if not frame[1].startswith("platform/")])
        found.append(("hang", f"in {report.begun or 'between calls'}: {' < '.join(functions[:5])}"))
    if found and not report.told:
        return found

    found += [("lost", f"{name} are told behind the disconnect") for name in sorted(set(report.late))]
    for task in ("async", "stream"):
        answers, messages, ends = report.told[task]
        wanted = 1 if results.get(task) == 0 else 0
        if answers != wanted:
            found.append(("lost", f"{task} with status {results.get(task)} is answered {answers} times"))
        if task == "stream" and ends != wanted or messages and not wanted:
            found.append(("lost", f"{task} with status {results.get(task)} has {messages} messages and {ends} ends"))
    if results.get("task") == 100:
        found.append(("lost", "task has a wrong answer"))
    wanted = ["second-connect", "second-task", "second-disconnect"]
    if "disconnect-again" in results:
        wanted.insert(0, "disconnect-again")
    for step in wanted:
        if step in results and results[step] != 0:
            found.append(("lost", f"{step} gives {results[step]}"))
    if report.left:
        found.append(("lost", f"{report.left} links are left open"))
    if not found and not report.done:
        found.append(("crash", "the life has no end"))
    return found


# (families, a function on the stack of a call that failed, what came of it, why it is so)
KEPT = [
    (("load", "memory"), "WRAPPER_COMMON_LoadSluiceHub", "second-connect gives 7",
     "a load that failed is counted all the same: a later connect takes it for done, and finds no functions"),
    (("memory",), "AddBrelInst", "second-task gives 12",
     "an engine that cannot be constructed leaves the table's lock with the thread that asked for it: the pipe "
     "library's threads find no engine any more"),
    (("memory",), "SafeQueue::insert",
     "hang: in (stream|broadcaster|version|disconnect): .*(BrelTasksSequencer::|Dorv_Disconnect|::ShutdownAsyncThread)",
     "a queue that cannot grow keeps its lock: who takes from it waits for ever, and holds the sequencer's mutex"),
    (("memory",), "BrelTasksSequencer::InsertAsyncDataBySeqNum", "stream with status 0",
     "a stream has no time-out: its messages for which there is no memory are lost, and it ends with the connection"),
]


def reason_to_keep(family, functions, fault):
    """Why a fault is as it must be, or None."""
    words = f"{fault[0]}: {fault[1]}"
    for families, function, outcome, reason in KEPT:
        if family in families and function in functions and re.search(outcome, words):
            return reason
    return None


# ----------------------------------------------------------------------------------------------------------------------
# Running
# ----------------------------------------------------------------------------------------------------------------------

def chosen(stacks, symbols, whole):
    """All stacks, or one for each innermost eight of the library's own functions."""
    if whole:
        return stacks
    return list({tuple(own(symbols.of(frames))[:8]): (number, calls, frames)
                 for number, calls, frames in sorted(stacks)}.values())


def own(frames):
    """The functions that are the library's, in whatever header their line stands."""
    return [function for function, _ in frames if not function.startswith(("std::", "__gnu_cxx::"))]


def attempt(program, setting, plan):
    """One run; more if the threads' order kept the call that is to fail from coming up."""
    for _ in range(3):
        life = Life(program, setting, plan)
        if life.hit():
            break
    return life


def run(program, arguments, pool, table):
    symbols = Symbols(program)
    unexpected, kept = [], collections.Counter()
    for setting in SETTINGS:
        for family in arguments.only or FAMILIES:
            row = collections.Counter()
            first = Life(program, setting, ["count", family])
            if faults_of(first):
                sys.exit(f"the life without failures has faults: {faults_of(first)}\n{first.errors}")
            stacks = first.report.stacks
            symbols.learn(frames for _, _, frames in stacks)
            row["calls"], row["stacks"] = sum(calls for _, calls, _ in stacks), len(stacks)
            whole = setting == "silent" or not arguments.slice
            plans = [["stack", family, str(number)] for number, _, _ in chosen(stacks, symbols, whole)]
            if setting == "silent" and not arguments.slice:
                plans += [["call", family, str(number)] for number in range(1, row["calls"] + 1)]
            plans = [[*plan, *mode] for plan in plans for mode in ([[], ["onwards"]] if whole else [[]])]
            for life in pool.map(functools.partial(attempt, program, setting), plans):
                if not life.hit():
                    row["missed"] += 1
                    continue
                row["tried"] += 1
                symbols.learn([*life.report.failed, life.report.stopped, life.report.died])
                failed = {function for stack in life.report.failed for function in own(symbols.of(stack))}
                found = faults_of(life, symbols.of(life.report.stopped))
                judged = [(fault, reason_to_keep(family, failed, fault)) for fault in found]
                wrong = [fault for fault, reason in judged if reason is None]
                if wrong:
                    row[wrong[0][0]] += 1
                    unexpected.append((setting, life, wrong))
                elif judged:
                    row["kept"] += 1
                    kept.update({reason for _, reason in judged})
            table.append((os.path.basename(os.path.dirname(os.path.dirname(program))), setting, family, row))
            print(line_of(table[-1]), flush=True)
    return symbols, unexpected, kept


COLUMNS = ["calls", "stacks", "tried", "crash", "hang", "lost", "kept", "missed"]


def line_of(entry):
    build, setting, family, row = entry
    return f"{build:8} {setting:10} {family:8}" + "".join(f"{row[c]:8}" for c in COLUMNS)


def print_unexpected(symbols, unexpected):
    """Groups what belongs together: the same faults, and the same place of the library."""
    groups = collections.defaultdict(list)
    for setting, life, found in unexpected:
        groups[(tuple(found), tuple(own(symbols.of(life.report.first()))[:3]))].append((setting, life))
    for (found, _), lives in sorted(groups.items(), key=lambda item: (item[0][0], -len(item[1]))):
        setting, life = lives[0]
        print("\n" + "; ".join(f"{kind}: {words}" for kind, words in found))
        print(f"    {len(lives)} times, as in: {setting} {' '.join(life.arguments)}")
        report = life.report
        for word, stack in (("failed", report.first()), ("stood", report.stopped), ("died", report.died)):
            for function, place in [frame for frame in symbols.of(stack) if own([frame])][:10]:
                print(f"    {word} in {function}  {place}")
        for line in life.errors.splitlines()[:3]:
            print(f"    {line}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--slice", action="store_true",
                        help="with logs, fail calls alone, and one for each eight innermost functions")
    parser.add_argument("--jobs", type=int, default=8, help="lives at a time; most of them wait")
    parser.add_argument("--only", action="append", choices=FAMILIES)
    parser.add_argument("program", nargs="+")
    arguments = parser.parse_args()
    if not shutil.which("addr2line"):
        sys.exit("addr2line is missing")
    table, bad, start = [], 0, time.monotonic()
    print(f"{'build':8} {'setting':10} {'family':8}" + "".join(f"{c:>8}" for c in COLUMNS), flush=True)
    for program in map(os.path.abspath, arguments.program):
        with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
            symbols, unexpected, kept = run(program, arguments, pool, table)
        for reason, count in kept.most_common():
            print(f"kept {count:5} times: {reason}")
        print_unexpected(symbols, unexpected)
        bad += len(unexpected)
    total = sum((row for _, _, _, row in table), collections.Counter())
    print(f"\n{total['tried']} failures tried in {time.monotonic() - start:.0f} s: "
          f"{total['kept']} with something kept on purpose, {bad} with a fault")
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
