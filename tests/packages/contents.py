#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Compares the packages of a folder with contents.txt: contents.py FOLDER [PACKAGE...], but for packages not built"""

import fnmatch
import pathlib
import subprocess
import sys
import zipfile


def files_of_deb(package):
    """Its name, and the files and links in it."""
    name = package.name.split("_")[0]
    tar = subprocess.run(["dpkg-deb", "--fsys-tarfile", package], check=True, stdout=subprocess.PIPE).stdout
    listing = subprocess.run(["tar", "-t"], check=True, input=tar, stdout=subprocess.PIPE).stdout.decode()
    return [(name, path.removeprefix("./")) for path in listing.splitlines() if not path.endswith("/")]


def files_of_zip(package):
    """The same, for a zip or the one with its symbols; all lie in one folder."""
    names = zipfile.ZipFile(package).namelist()
    folder = package.stem.removesuffix("-Symbols") + "/"
    return [("zip", path.removeprefix(folder)) for path in names if not path.endswith("/")]


folder = pathlib.Path(sys.argv[1])
found = [entry for deb in folder.glob("*.deb") for entry in files_of_deb(deb)]
found += [entry for package in folder.glob("*.zip") for entry in files_of_zip(package)]

expected = []
for line in pathlib.Path(__file__).with_name("contents.txt").read_text(encoding="utf-8").splitlines():
    if not line.startswith("#"):
        expected.append(tuple(line.split()))
is_zip = any(name == "zip" for name, _ in found)
left_out = sys.argv[2:]
expected = [(name, pattern) for name, pattern in expected if (name == "zip") == is_zip and name not in left_out]


def fits(entry, line):
    return entry[0] == line[0] and fnmatch.fnmatchcase(entry[1], line[1])


faults = ["not in contents.txt: " + " ".join(e) for e in found if not any(fits(e, line) for line in expected)]
faults += ["in no package: " + " ".join(line) for line in expected if not any(fits(e, line) for e in found)]
print("\n".join(faults) or f"{len(found)} files, as expected")
sys.exit(bool(faults))
