# SPDX-License-Identifier: MIT
"""Does what a page tells its readers to do, and compares what they see with what the page shows.

    run_page.py ROOT PAGE SCRATCH

A page is a script: its `sh` blocks are run in their order by one shell, in a folder that looks like the repository. How
blocks are marked for that is described in docs/contributing.md under "Pages".
"""

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

from pages import Page

TIME_LIMIT = 300  # seconds, for a whole page

# Languages that are neither run nor saved: text for the eye, and what no test can do.
SHOWN = {"", "text", "bat"}

# A failure leaves the line and the command behind. Output goes to one file per block.
PREAMBLE = r"""
set -eE
fault() { printf '%s\n%s\n' "$1" "$2" >"$FAULT"; exit 1; }
watch() { set -e; trap 'fault "$LINENO" "$BASH_COMMAND"' ERR; }
unwatch() { set +e; trap - ERR; }
watch
source "$SCRIPT"
"""


class Fault(Exception):
    def __init__(self, line, text):
        super().__init__(text)
        self.line = line


def lay_out(root, scratch):
    """
    Makes a folder that looks like a fresh clone, in which a page may save files. It has no presets: a build folder that
    was configured from here would be built anew.
    """
    shutil.rmtree(scratch, ignore_errors=True)
    (scratch / "home").mkdir(parents=True)
    for entry in root.iterdir():
        if not entry.name.startswith(".") and (entry.is_dir() or entry.suffix in (".md", ".txt")):
            (scratch / entry.name).symlink_to(entry)
    (scratch / "run").write_text(f'#!/bin/sh\nexec "{root}/run" "$@"\n')
    (scratch / "run").chmod(0o755)


def saved_as(block):
    """The file that the page says to save the block as, or None."""
    named = re.search(r"[Ss]ave (?:it |this |them )?as `([^`]+)`", block.before)
    return named and named.group(1)


def check_excerpt(root, block):
    """A block that a line above says to be from a file: its lines stand there, one behind the other."""
    named = re.search(r"[Ff]rom `([^`]+)`", block.before)
    if not named:
        raise Fault(block.line, f'a block of {block.language} is neither saved ("Save as `FILE`:") nor from a file')
    strip = lambda lines: "\n".join(line.strip() for line in lines)
    if strip(block.lines) not in strip((root / named.group(1)).read_text(encoding="utf-8").splitlines()):
        raise Fault(block.line, f"this does not stand in {named.group(1)}")


def as_script(page, root, work):
    """The page as a shell script that has each command on its line."""
    script = [""] * len(page.lines)
    for block in page.blocks:
        if block.is_run:
            script[block.line - 1] = f'exec >"{work}/{block.line}" 2>&1'
            script[block.line : block.end - 1] = block.lines
            if block.words == ["fails"]:
                script[block.line - 1] += "; unwatch"
                script[block.end - 1] = f'(($? != 0)) || fault {block.end} "the last command, which should fail"; watch'
            elif block.words:
                raise Fault(block.line, f"sh blocks are not marked with {' '.join(block.words)}")
        elif saved_as(block):
            content = work / f"{block.line}.saved"
            content.write_text("\n".join(block.lines) + "\n", encoding="utf-8")
            file = saved_as(block)
            script[block.line - 1] = f'mkdir -p "$(dirname "{file}")"; cp --remove-destination "{content}" "{file}"'
        elif block.language not in SHOWN | {"sh"}:
            check_excerpt(root, block)
    return "\n".join(script) + "\n"


def run(page, script, work, scratch):
    """Runs the script; its first fault ends it."""
    (work / "script.sh").write_text(script, encoding="utf-8")
    fault = work / "fault"
    environment = {
        **{name: value for name, value in os.environ.items() if name not in ("LD_LIBRARY_PATH", "CDPATH")},
        "PATH": f"{scratch}/build/release/bin:{os.environ['PATH']}",
        "HOME": f"{scratch}/home",
        "SCRIPT": str(work / "script.sh"),
        "FAULT": str(fault),
    }
    try:
        status = subprocess.run(["bash", "-c", PREAMBLE], cwd=scratch, env=environment, timeout=TIME_LIMIT,
                                stdin=subprocess.DEVNULL).returncode
    except subprocess.TimeoutExpired:
        status = f"of a page that takes longer than {TIME_LIMIT} s"
    if fault.exists():
        line, command = fault.read_text().split("\n", 1)
        raise Fault(int(line), f"failed: {command.strip()}")
    if status != 0:
        begun = [block.line for block in page.blocks if (work / str(block.line)).exists()]
        raise Fault(begun[-1] if begun else 1, f"the shell ended with the status {status}")


def pattern_of(lines):
    """What `...` may stand for: any lines, if it has a line of its own; else any characters of the line."""
    pattern = ""
    for line in lines:
        if line.strip() == "...":
            pattern += r"(?:.*\n)*?"
        else:
            pattern += ".*".join(re.escape(part) for part in line.rstrip().split("...")) + r"[ \t]*\n"
    return pattern


def output_of(work, block):
    """What the block printed, on both outputs, but for what ./run tells of its progress."""
    file = work / str(block.line)
    output = file.read_text(encoding="utf-8", errors="replace") if file.exists() else ""
    return re.sub(r"^run: .*\n", "", output, flags=re.MULTILINE)


def compare(page, work):
    """A `text` block shows what the `sh` block before it prints."""
    for block, before in zip(page.blocks[1:], page.blocks):
        if block.language != "text":
            continue
        if not before.is_run:
            raise Fault(block.line, "a text block is the output of the sh block before it; there is none")
        output = output_of(work, before).strip("\n") + "\n"
        if not re.fullmatch(pattern_of(block.lines), output):
            raise Fault(block.line, "the output is another one")


def main(root, page_name, scratch):
    root, scratch = Path(root).resolve(), Path(scratch).resolve()
    page = Page(root / page_name)
    lay_out(root, scratch)
    work = scratch / "home" / ".page"
    work.mkdir()
    try:
        run(page, as_script(page, root, work), work, scratch)
        compare(page, work)
    except Fault as fault:
        print(f"{page_name}:{fault.line}: {fault}")
        for block in [b for b in page.blocks if b.is_run and b.line <= fault.line][-1:]:
            print(f"The output of the block in line {block.line}:\n{output_of(work, block)}")
        return 1
    print(f"{page_name}: {sum(block.is_run for block in page.blocks)} blocks do what the page says")
    return 0


sys.exit(main(*sys.argv[1:]))
