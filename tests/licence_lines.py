#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Each source says on its first line under which licence it is; behind a `#!` on its second.

    licence_lines.py ROOT             tells the sources that do not
    licence_lines.py ROOT --insert    has them do so
"""

import os
import sys
from pathlib import Path

LINE = "SPDX-License-Identifier: MIT"

# How a comment is written, by the suffix of a file without `.in`. Headers of C are also for compilers of C90.
COMMENTS = {
    "// {}": (".cpp", ".hpp", ".js", ".mjs", ".ts", ".tsx"),
    "/* {} */": (".c", ".css", ".h", ".map", ".rc", ".S"),
    "# {}": (".cmake", ".pc", ".py", ".pyi", ".sh", ".toml", ".yml"),
    "-- {}": (".lua",),
    "; {}": (".def",),
    "<!-- {} -->": (".html",),
}
BY_SUFFIX = {suffix: comment for comment, suffixes in COMMENTS.items() for suffix in suffixes}


def sources(root):
    """All but what a build makes, what is hidden, and what fuzzers feed on."""
    for folder, folders, files in os.walk(root):
        folder = Path(folder)
        here = folder.relative_to(root).as_posix()
        folders[:] = [name for name in folders
                      if not name.startswith(".") and name not in ("node_modules", "__pycache__")
                      and (here, name) not in ((".", "build"), ("fuzz", "corpus"))]
        yield from (folder / name for name in files if not (folder / name).is_symlink())


def comment_of(file, lines):
    """How this file writes comments; None if it is no source."""
    if lines and lines[0].startswith("#!"):
        return "# {}"
    if file.name == "CMakeLists.txt":
        return "# {}"
    return BY_SUFFIX.get(Path(file.name.removesuffix(".in")).suffix)


def main(root, *options):
    known, missing = 0, []
    for file in sorted(sources(Path(root))):
        try:
            lines = file.read_text(encoding="utf-8").split("\n")
        except UnicodeDecodeError:
            continue
        comment = comment_of(file, lines)
        if comment is None:
            continue
        known += 1
        at = 1 if lines[0].startswith("#!") else 0
        if lines[at : at + 1] == [comment.format(LINE)]:
            continue
        if options == ("--insert",):
            file.write_text("\n".join([*lines[:at], comment.format(LINE), *lines[at:]]), encoding="utf-8")
        else:
            missing.append(file.relative_to(root).as_posix())
    print("\n".join(f"{file}: has no line {LINE}" for file in missing) or f"{known} sources tell their licence")
    return 1 if missing or not known else 0


sys.exit(main(*sys.argv[1:]))
