#!/usr/bin/python3
"""Runs the samples of the tool in README.md and docs/ (blocks fenced as "console") in the folder of the examples: below
a command after "$ " stands what it writes to standard output and standard error, with "[exit code N]" at the end where
that is not 0.

Arguments: SOURCE_DIR BUILD_DIR WORK_DIR
"""

import difflib
import os
import pathlib
import re
import subprocess
import sys

source, build = pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve()
environment = dict(os.environ, PATH=f"{build / 'tools/dp4'}:{os.environ['PATH']}")

failures = commands = 0
for document in [source / "README.md", *sorted((source / "docs").glob("*.md"))]:
    for block in re.findall(r"^```console\n(.*?)^```$", document.read_text(), re.M | re.S):
        for sample in re.split(r"^\$ ", block, flags=re.M)[1:]:
            command, expected = sample.split("\n", 1)
            # The line ends of CSV, a carriage return and a line feed, come as line feeds here.
            run = subprocess.run(["bash", "-c", command], cwd=source / "examples", env=environment, text=True,
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            found = run.stdout + (f"[exit code {run.returncode}]\n" if run.returncode else "")
            commands += 1
            if found != expected:
                failures += 1
                print(f"{document.name}: $ {command}")
                print(*difflib.unified_diff(expected.splitlines(), found.splitlines(), "expected", "found",
                                            lineterm=""), sep="\n")
print(f"{commands} commands")
sys.exit(1 if failures or commands == 0 else 0)
