#!/usr/bin/python3
"""Includes point from later rooms to earlier ones only, so that each room can be read, built and changed without those
that come after it."""

import pathlib
import re
import sys

source = pathlib.Path(sys.argv[1])

# In their order. A file belongs to the longest path that it begins with.
ROOMS = [
    "host",
    "Protocol",
    "inspect/text",
    "inspect/json",
    "inspect/model",
    "inspect/packets",
    "inspect/findings",
    "inspect/layout",
    "inspect/lint",
    "inspect/compare",
    "inspect/vectors",
    "inspect/generate",
    "inspect/capture",
    "inspect/devices",
    "bindings/c",
    "bindings/python",
    "bindings/js",
    "tools/dp4",
    "studio",
    "examples",
    "tests/support",
    "tests",
    "fuzz",
    "bench",
]


def rank(path):
    rooms = [room for room in ROOMS if path.startswith(room + "/")]
    return ROOMS.index(max(rooms, key=len)) if rooms else None


failures = []
includes = 0
for room in sorted({room.split("/")[0] for room in ROOMS}):
    for file in sorted((source / room).rglob("*")):
        if file.suffix not in (".h", ".cpp", ".c"):
            continue
        name = str(file.relative_to(source))
        if rank(name) is None:
            failures.append(f"{name} belongs to no room")
            continue
        for line, text in enumerate(file.read_text().splitlines(), 1):
            match = re.match(r'\s*#\s*include\s+"(.*)"', text)
            if not match:
                continue
            beside = (file.parent / match[1]).resolve()
            target = beside if beside.exists() else source / match[1]
            if not target.exists():
                continue  # generated, or of a library
            includes += 1
            included = str(target.relative_to(source))
            if rank(included) is None or rank(included) > rank(name):
                failures.append(f"{name}:{line} includes {included}, which is in a later room or in none")

print(*failures, sep="\n")
print(f"{includes} includes of our own files")
sys.exit(1 if failures or includes == 0 else 0)
