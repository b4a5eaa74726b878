# SPDX-License-Identifier: MIT
"""Checks that every link between pages, to files and to headings leads somewhere, and that README leads to every page.

    check_links.py ROOT
"""

import sys
from pathlib import Path

from pages import Page, pages_of


def main(root):
    root = Path(root).resolve()
    pages = {path.resolve(): Page(path) for path in pages_of(root)}
    faults, reached = [], {root / "README.md"}
    for path, page in pages.items():
        for line, target in page.links():
            if "://" in target or target.startswith("mailto:"):
                continue
            name, _, anchor = target.partition("#")
            file = (path.parent / name).resolve() if name else path
            if path == root / "README.md":
                reached.add(file)
            if not file.exists():
                faults.append(f"{path.relative_to(root)}:{line}: there is no {target}")
            elif anchor and (file not in pages or anchor not in pages[file].anchors()):
                faults.append(f"{path.relative_to(root)}:{line}: there is no heading {target}")
    faults += [f"README.md: no link to {path.relative_to(root)}" for path in pages if path not in reached]
    print("\n".join(faults) or f"{len(pages)} pages, every link leads somewhere")
    return 1 if faults else 0


sys.exit(main(*sys.argv[1:]))
