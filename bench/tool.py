#!/usr/bin/env python3
"""Counts the instructions of dp4 on long streams and large configurations: tool.py DP4 FOLDER

The files that it makes for dp4 go to FOLDER. Fails when a figure is above its bar.
"""
import concurrent.futures
import json
import os
import resource
import re
import subprocess
import sys

DP4, FOLDER = sys.argv[1:]
KETTLE = "examples/kettle.json"
PACKETS = 20000
ATTRIBUTES = 2000
MANY_ATTRIBUTES = 200000
KIB_PER_GB = 1e9 / 1024

# The instructions before streams were decoded by a plan and configurations became one model, by the same commands.
BARS = {"flat": 0.7 * 18709, "decoded": 0.6 * 76087, "table": 0.3 * 383300}
LINT_BEFORE = 440709


def write(name, text):
    path = os.path.join(FOLDER, name)
    with open(path, "w", encoding="ascii") as file:
        file.write(text)
    return path


def run(command, stdin):
    with open(stdin, encoding="ascii") as stream:
        done = subprocess.run(command, stdin=stream, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    if done.returncode not in (0, 1):
        sys.exit(f"{' '.join(command)}: {done.stderr}")
    return done.stderr


def instructions(arguments, stdin=os.devnull):
    counter = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", DP4]
    return int(re.search(r"Collected : (\d+)", run(counter + arguments, stdin)).group(1))


def stream(count):
    """Notifications of the kettle, every hundredth with the alert on."""
    return "".join(f"04055a{i % 1501:04x}{2 if i % 100 == 0 else 0:02x}00\n" for i in range(count))


def configuration(count):
    """Of ten attributes three bools and an enum share a byte; six are numbers of two bytes."""
    attributes = []
    for i in range(count):
        ten, one = divmod(i, 10)
        attribute = {"id": i, "name": f"value{i}", "display_name": f"Value {i}", "desc": "", "type": "status_writable"}
        byte_offset = 13 * ten
        if one < 4:
            attribute["data_type"] = "enum" if one == 3 else "bool"
            if one == 3:
                attribute["enum"] = ["off", "low", "high"]
            place = {"byte_offset": byte_offset, "bit_offset": one, "unit": "bit", "len": 2 if one == 3 else 1}
        else:
            attribute["data_type"] = "uint16"
            attribute["uint_spec"] = {"min": 0, "max": 1000, "ratio": 0.1, "addition": 0}
            place = {"byte_offset": byte_offset + 2 * one - 7, "bit_offset": 0, "unit": "byte", "len": 2}
        attribute["position"] = place
        attributes.append(attribute)
    entity = {"id": 0, "name": "plant", "display_name": "Plant", "attrs": attributes}
    return json.dumps({"entities": [entity]})


missed = False


def figure(text, value, bar):
    global missed
    missed |= value > bar
    print(f"{text:<66} {value:>10.2f} {bar:>10.2f}  {'MISSED' if value > bar else 'ok'}")


def main():
    print(f"{'figure':<66} {'is':>10} {'at most':>10}")
    packets = write("packets.txt", stream(PACKETS))
    some = write("some.json", configuration(ATTRIBUTES))
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        forms = {form: pool.submit(instructions, ["decode", KETTLE, "--quiet", "--document", form], packets)
                 for form in ("table", "flat", "decoded", "csv")}
        lint = pool.submit(instructions, ["lint", some])
    costs = {form: count.result() / PACKETS for form, count in forms.items()}
    for form, cost in costs.items():
        bar = BARS[form] if form in BARS else 1.5 * costs["flat"]
        figure(f"decode --document {form}, instructions per packet of {PACKETS}", cost, bar)
    figure(f"lint, {ATTRIBUTES} attributes, instructions per attribute", lint.result() / ATTRIBUTES, LINT_BEFORE / 4)
    many = write("many.json", configuration(MANY_ATTRIBUTES))
    run([DP4, "lint", many], os.devnull)
    memory = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss / KIB_PER_GB
    figure(f"lint, {MANY_ATTRIBUTES} attributes, {os.path.getsize(many) / 1e6:.0f} MB, memory in GB", memory, 0.85)
    return missed


sys.exit(main())
