#!/usr/bin/python3
"""Runs the samples of docs/tool.md (blocks fenced as "console") in the folder of the examples: what stands below a
command after "$ " is what it says, on standard output and standard error."""

import os
import pathlib
import re
import subprocess
import sys

source, build = pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve()
environment = dict(os.environ, PATH=f"{build / 'tools/dp4'}:{os.environ['PATH']}")

failures = commands = 0
for block in re.findall(r"^```console\n(.*?)^```$", (source / "docs/tool.md").read_text(), re.M | re.S):
    for sample in re.split(r"^\$ ", block, flags=re.M)[1:]:
        command, expected = sample.split("\n", 1)
        run = subprocess.run(["bash", "-c", command], cwd=source / "examples", env=environment, text=True,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        commands += 1
        # The line ends of CSV, a carriage return and a line feed, come as line feeds here.
        if run.stdout != expected:
            failures += 1
            print(f"$ {command}\nexpected:\n{expected}\nsaid:\n{run.stdout}")
print(f"{commands} commands")
sys.exit(1 if failures or commands == 0 else 0)
