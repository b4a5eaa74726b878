# SPDX-License-Identifier: MIT
"""Gives Doxygen its marks. Headers and pages are written to be read as they are; this filter goes between.

    doxygen_filter.py FILE

Lines keep their numbers. In a header it marks
  - the comment that the file opens with behind the line of its licence, as the file's;
  - "name  What it is." in a list of a comment, as a parameter, and "KEL_...  What it says." as a result;
  - "Returns ..." at the begin of a line;
  - a comment behind a member, a value or a macro, as that one's.
In a page it makes links to headings and to public headers known, and leaves of links to other files their text.
"""

import re
import sys
from pathlib import Path

from pages import Page, anchor_of

# Where the headers of the reference lie, as in the Doxyfile.
HEADERS = [Path(folder).resolve() for folder in ("include", "include/kel", "simulator/include")]

HEADER_MARKS = [
    (r"^ \* Returns$", r" * @return"),
    (r"^ \* Returns (?=\S)", r" * @return "),
    (r"^ \*   (KEL_\w+)  +(?=\S)", r" * @retval \1 "),
    (r"^ \* (\w+(?:(?:, | to )\w+)*)  +(?=\S)", lambda list_item: f" * @param {list_item[1].replace(', ', ',')} "),
    (r"^(#define \S+ \S+ *|\s.*[;,] *)/\* (?=.*\*/$)", r"\1/**< "),
]


def marked_header(lines):
    for number, line in enumerate(lines):
        if number <= 1 and line == "/*":
            line = "/** @file"
        for pattern, mark in HEADER_MARKS:
            line = re.sub(pattern, mark, line)
        yield line


def marked_page(page):
    name = page.path.stem

    def marked_link(link):
        text, file, anchor = link[1], Path(link[2]), link[3]
        if file.suffix in (".h", ".hpp") and (page.path.parent / file).resolve().parent in HEADERS:
            return f"[{text}](@ref {file.name})"
        if anchor:
            return f"[{text}](#{file.stem or name}-{anchor[1:]})"
        return link[0] if file.suffix == ".md" or ":" in link[2] else text

    for line, prose in zip(page.lines, page.prose):
        if prose.startswith("##"):
            line += f" {{#{name}-{anchor_of(prose)}}}"
        elif prose:
            line = re.sub(r"\[([^]]+)\]\(([^)#\s]*)(#[^)\s]+)?\)", marked_link, line)
        yield line


def main(file):
    if file.endswith(".md"):
        lines = marked_page(Page(file))
    else:
        lines = marked_header(Path(file).read_text(encoding="utf-8").splitlines())
    print("\n".join(lines))


main(*sys.argv[1:])
