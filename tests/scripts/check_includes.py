#!/usr/bin/env python3
"""Checks every #include "..." of the tree against the table of who may include whom.

Usage: check_includes.py [ROOT]

Each offence is one line, file:line, what is wrong and what to include instead; the exit status is
then 1. System headers (<...>) are not looked at.
"""
import re
import sys
from fnmatch import fnmatchcase
from pathlib import Path

# What a menu shows to the other menus, and the reports that the status thread prints.
PUBLIC = (
    "mainwork/mainwork.h", "mainwork/encode.h", "mainwork/private_zone.h",
    "searchwork/searchwork.h", "setupwork/setupwork.h",
    "statuswork/statuswork.h", "statuswork/status_thread.h", "memtest/memtest.h",
)
REPORTS = ("mainwork/encode_reports.h", "mainwork/report_lines.h", "searchwork/search_reports.h")
CODEC_API = ("mainwork/qm_*.h",)
API = ("shell/qm_*.h",) + CODEC_API

# All that the tests may see; how much of the stand-in is added where they are listed.
ANY_ROOM = ("shell/*", "env/*", "mainwork/*", "searchwork/*", "setupwork/*", "statuswork/*",
            "memtest/*", "tools/*", "tests/*", "fuzz/*", "bench/*", "demo/*")

# Who (the first row that fits a file counts) may include what. "*" runs across folders.
RULES = (
    (("shell/main.*", "shell/app.*"), ("shell/*", "env/*") + PUBLIC),
    (("shell/*",), ("shell/*",)),
    (CODEC_API, API),
    (("env/*",), ("env/*", "shell/*") + CODEC_API),
    (("setupwork/*",), ("setupwork/*", "env/*", "shell/*")),
    (("memtest/*",), ("memtest/*", "env/*", "shell/*")),
    (("searchwork/*",), ("searchwork/*", "env/*", "shell/*") + CODEC_API + PUBLIC + REPORTS),
    (("statuswork/*",), ("statuswork/*", "env/*", "shell/*") + CODEC_API + PUBLIC + REPORTS),
    (("mainwork/*",), ("mainwork/*", "env/*", "shell/*") + PUBLIC),
    (("sdk/*",), ("sdk/*",) + API),
    (("tools/qmtool/*",), ("tools/qmtool/*", "sdk/db/*", "sdk/video/*", "shell/qm_*.h")),
    (("tests/sdk/*", "tests/allocation/*", "tests/contract/*", "tests/proof/*", "bench/*", "fuzz/*"),
     ANY_ROOM + ("sdk/*",)),
    (("tests/*", "demo/*"), ANY_ROOM + ("sdk/sim_control.h",)),
)

INCLUDE = re.compile(r'\s*#\s*include\s*"([^"]*)"')
SKIPPED_FOLDERS = {"build"}


def fits(path, patterns):
    return any(fnmatchcase(path, pattern) for pattern in patterns)


def allowed_for(file):
    for files, allowed in RULES:
        if fits(file, files):
            return allowed
    return None


def advice(target, allowed):
    """What to include in place of `target`: what its room shows to this file, else all there is."""
    room = target.split("/")[0]
    shown = [pattern for pattern in allowed if pattern.split("/")[0] == room]
    if shown:
        return "include instead: " + ", ".join(shown)
    return f"nothing of {room}/ is open here; include instead: " + ", ".join(allowed)


def complaint(root, file, target):
    """What is wrong with `file` including `target`, or None."""
    if not (root / target).is_file() or ".." in target.split("/"):
        beside = ((root / file).parent / target).resolve()
        if beside.is_file() and beside.is_relative_to(root.resolve()):
            rooted = beside.relative_to(root.resolve()).as_posix()
            return f'"{target}" is not relative to the root; include instead: "{rooted}"'
        return f'"{target}" does not exist; include a file by its path from the root'
    allowed = allowed_for(file)
    if allowed is None:
        return f"no row of the include table covers {file}; add one to check_includes.py"
    if not fits(target, allowed):
        return f'must not include "{target}"; {advice(target, allowed)}'
    return None


def source_files(root):
    for path in sorted(root.rglob("*")):
        parts = path.relative_to(root).parts
        if path.suffix not in (".h", ".cpp") or not path.is_file():
            continue
        if parts[0] in SKIPPED_FOLDERS or any(part.startswith(".") for part in parts):
            continue
        yield "/".join(parts)


def offences(root):
    for file in source_files(root):
        lines = (root / file).read_text(encoding="utf-8", errors="replace").splitlines()
        for number, line in enumerate(lines, start=1):
            found = INCLUDE.match(line)
            wrong = found and complaint(root, file, found.group(1))
            if wrong:
                yield f"{file}:{number}: {wrong}"


def main(arguments):
    root = Path(arguments[0]) if arguments else Path(__file__).resolve().parents[2]
    found = list(offences(root))
    for line in found:
        print(line)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
