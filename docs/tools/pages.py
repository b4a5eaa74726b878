# SPDX-License-Identifier: MIT
"""The parts of a page that tests look at: its lines, its fenced blocks, its headings and its links."""

import re
from dataclasses import dataclass
from pathlib import Path


@dataclass
class Block:
    """What stands between two fences. Lines count from 1; `line` is that of the opening fence."""

    language: str
    words: list[str]  # behind the language
    line: int
    lines: list[str]
    before: str  # the nearest line of text above it, if no block stands between

    @property
    def end(self):
        """The line of the closing fence."""
        return self.line + len(self.lines) + 1

    @property
    def is_run(self):
        return self.language == "sh" and self.words != ["no-test"]


class Page:
    def __init__(self, path):
        self.path = Path(path)
        self.lines = self.path.read_text(encoding="utf-8").splitlines()
        self.blocks = []
        self.prose = [""] * len(self.lines)  # the lines outside of blocks
        self._split()

    def _split(self):
        opening, before = None, ""
        for number, line in enumerate(self.lines, 1):
            if opening is not None:
                if line.strip() == "```":
                    language, *words = self.lines[opening - 1].strip()[3:].split() or [""]
                    self.blocks.append(Block(language, words, opening, self.lines[opening : number - 1], before))
                    opening, before = None, ""
            elif line.startswith("```"):
                opening = number
            else:
                self.prose[number - 1] = line
                before = line.strip() or before
        if opening is not None:
            raise SystemExit(f"{self.path}:{opening}: this block has no end")

    def anchors(self):
        """What a link may name behind #."""
        return {anchor_of(line) for line in self.prose if line.startswith("#")}

    def links(self):
        """(line, target) of each link and picture."""
        for number, line in enumerate(self.prose, 1):
            for target in re.findall(r"\]\(([^)\s]+)\)", re.sub(r"`[^`]*`", "", line)):
                yield number, target


def anchor_of(heading):
    """What a link to a heading names, as the web makes it."""
    return re.sub(r"[^\w\- ]", "", heading.lstrip("#").strip().lower()).replace(" ", "-")


def pages_of(root):
    root = Path(root)
    return [root / "README.md", root / "CHANGELOG.md", *sorted((root / "docs").glob("*.md"))]
