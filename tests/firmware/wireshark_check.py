#!/usr/bin/env python3
"""What tshark shows of random packets with a generated dissector is what `dp4 decode` gives.

DP4 EXAMPLES WORK_DIR: the tool, the folder of the example products, and an empty folder to work in."""

import base64
import json
import pathlib
import random
import subprocess
import sys

dp4, examples, work = sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3])
PORT = 12416
PACKETS = 2000  # of each entity
PRODUCTS = [
    ("kettle", "kettle"),
    ("air_conditioner", "air_conditioner"),
    ("gateway", "gateway"),
    ("gateway", "thermostat"),
    ("power_meter", "meter"),
]
choices = random.Random(1)


def run(*command, text=""):
    result = subprocess.run(command, input=text, capture_output=True, text=True)
    return result.stdout


def made(configuration, entity):
    """Packets as a device sends them, and the same changed, cut short and made longer."""
    vectors = json.loads(run(dp4, "vectors", configuration, "--entity", entity, "--random", "1000"))
    bases = [bytes.fromhex(vector["packet"]) for vector in vectors["notifications"]]
    packets = []
    while len(packets) < PACKETS:
        packet = bytearray(choices.choice(bases))
        packet[0] = choices.choice([3, 4])
        for _ in range(choices.choice([0, 0, 1, 1, 3])):
            packet[choices.randrange(1, len(packet))] = choices.randrange(256)
        if choices.random() < 0.15:
            del packet[choices.randrange(2, len(packet)) :]
        if choices.random() < 0.1:
            packet += choices.randbytes(choices.randrange(1, 4))
        packets.append(bytes(packet))
    return packets


def told(value, attribute):
    """A decoded value as tshark's: bools 0 and 1, numbers as numbers, bytes in hexadecimal."""
    if attribute["data_type"] == "bool":
        return float(value)
    if attribute["data_type"] == "binary":
        return base64.b64decode(value).hex()
    return float(value)


def shown(text, attribute):
    if text == "":
        return None
    if attribute["data_type"] == "binary":
        return text.replace(":", "")
    return {"True": 1.0, "False": 0.0}[text] if text in ("True", "False") else float(text)


def is_same(one, other):
    if isinstance(one, float) and isinstance(other, float):
        return abs(one - other) <= 1e-9 * max(1.0, abs(one))  # tshark prints 15 digits
    return one == other


def dissect(script, packets, fields, options=()):
    capture = work / "capture.pcap"
    hexdump = "".join("0000 " + packet.hex(" ") + "\n" for packet in packets)
    subprocess.run(["text2pcap", "-q", *(options or ["-u", f"40000,{PORT}"]), "-", capture], input=hexdump, text=True,
                   check=True, capture_output=True)
    command = ["tshark", "-X", f"lua_script:{script}", "-r", capture, "-T", "fields", "-E", "separator=/t"]
    for field in fields:
        command += ["-e", field]
    result = subprocess.run(command, capture_output=True, text=True, check=True)
    assert "rror" not in result.stderr.replace("_ws.lua", ""), result.stderr
    return [line.split("\t") for line in result.stdout.rstrip("\n").split("\n")]


compared = values = absent = 0
for product, name in PRODUCTS:
    configuration = examples / f"{product}.json"
    entity = next(e for e in json.loads(configuration.read_text())["entities"] if e["name"] == name)
    run(dp4, "generate", "wireshark", configuration, "--entity", name, "--udp", str(PORT), "--output", work)
    packets = made(configuration, name)
    lines = "".join(packet.hex() + "\n" for packet in packets)
    decoded = run(dp4, "decode", configuration, "--entity", name, "--document", "decoded", text=lines).splitlines()
    assert len(decoded) == len(packets), f"{len(decoded)} of {len(packets)} packets are decoded"
    rows = dissect(work / f"{name}.lua", packets, [f"{name}.{a['name']}" for a in entity["attrs"]])
    assert len(rows) == len(packets)
    for packet, line, row in zip(packets, decoded, rows):
        document = json.loads(line).get(name, {})
        row += [""] * (len(entity["attrs"]) - len(row))
        for attribute, text in zip(entity["attrs"], row):
            is_alert = attribute["type"] in ("alert", "fault")
            item = document.get(attribute["display_name" if is_alert else "name"])
            expected = None if item is None else told(item["value"], attribute)
            found = shown(text, attribute)
            if not is_same(found, expected):
                sys.exit(f"{name}.{attribute['name']} of {packet.hex(' ')}: tshark has {found}, dp4 has {expected}")
            values += expected is not None
            absent += expected is None
        compared += 1

# Filters, writes, expert information, sub-devices and the link type.
run(dp4, "generate", "wireshark", examples / "kettle.json", "--dlt", "0", "--output", work)
checks = [
    ("04 05 5a 01 9f 00 00", "kettle.target > 80 && kettle.program == 2 && kettle.temperature == 21.5"),
    ("04 05 5a 00 fd 00 00", "kettle.temperature == 5.3"),
    ("04 05 5a 00 bf 00 00", "kettle.temperature == -0.9"),
    ("04 05 ff 01 9f 00 00", "kettle.expert.out_of_range && !kettle.target"),
    ("04 07 5a 01 9f 00 00", "kettle.expert.no_item && kettle.expert.not_read && kettle.power && !kettle.target"),
    ("04 05 5a 01 9f 00 00 00", "kettle.expert.surplus && kettle.sensor"),
    ("04 05 5a 01", "kettle.expert.short && kettle.expert.not_read && !kettle.power"),
    ("01 05 01 5a", "kettle.packet.command == 1 && kettle.target == 85 && !kettle.program"),
    ("07 0d 0c 0b 0a 02 04 00", "kettle.packet.sub_device == 0x0a0b0c0d && kettle.program == 2 && !kettle.power"),
    ("01 00 05 5a", "kettle.expert.no_flag && _ws.expert.severity == error && !kettle.power && !kettle.program && "
                    "!kettle.target"),
    ("01 0f 05 5a", "kettle.expert.unknown && _ws.expert.severity == error && !kettle.power && !kettle.program && "
                    "!kettle.target"),
    ("01 0c 01 5a", "kettle.expert.unknown && !kettle.target"),
    ("01 04 00 ff", "kettle.expert.out_of_range && !kettle.target"),
    ("01 05 01", "kettle.expert.short"),
    ("01 05 01 5a 00", "kettle.expert.surplus"),
    ("08 fe ff ff ff", "kettle.packet.sub_device == -2"),
    ("0c 01 00", "kettle.expert.short"),
    ("02", "kettle.packet.command == 2 && !kettle.expert.short"),
    ("02 00", "kettle.expert.surplus"),
    ("04", "kettle.expert.short"),
    ("63", "kettle.expert.unknown"),
]
capture = work / "filters.pcap"
subprocess.run(["text2pcap", "-q", "-l", "147", "-", capture], check=True, text=True, capture_output=True,
               input="".join("0000 " + packet + "\n" for packet, _ in checks))
for number, (packet, pattern) in enumerate(checks, 1):
    found = subprocess.run(["tshark", "-X", f"lua_script:{work}/kettle.lua", "-r", capture, "-Y",
                            f"frame.number == {number} && ({pattern})"], capture_output=True, text=True)
    if found.stdout.count("\n") != 1:
        sys.exit(f"{packet} does not match {pattern}: {found.stdout}{found.stderr}")

# Of several entities a packet shows the one of its length.
run(dp4, "generate", "wireshark", examples / "gateway.json", "--udp", str(PORT), "--output", work)
both = [bytes([4]) + bytes(28), bytes([4]) + bytes(13)]
rows = dissect(work / "gateway.lua", both, ["gateway.packet.command", "thermostat.packet.command"])
if rows != [["4", ""], ["", "4"]]:
    sys.exit(f"the entities of two packets: {rows}")

# Names and titles that Wireshark has already, twice, are too short, or are words of its filters.
attribute = json.loads((examples / "kettle.json").read_text())["entities"][0]["attrs"][0]
taken = [("media", "USB"), ("socket_1", "Socket"), ("socket_2", "Socket"), ("a", "A"), ("all", "All")]
configuration = work / "taken.json"
configuration.write_text(json.dumps({"entities": [
    {"id": id, "name": name, "display_name": title, "attrs": [attribute]} for id, (name, title) in enumerate(taken)]}))
filters = ("media_device", "socket_1", "socket_2", "a_device", "all_device")
for (name, _), filtered in zip(taken, filters):
    run(dp4, "generate", "wireshark", configuration, "--entity", name, "--udp", str(PORT), "--output", work)
    if dissect(work / f"{name}.lua", [b"\4\1"], [f"{filtered}.power"]) not in ([["True"]], [["1"]]):
        sys.exit(f"{filtered}.power is not shown")
run(dp4, "generate", "wireshark", configuration, "--udp", str(PORT), "--output", work)
if dissect(work / "media.lua", [b"\4\1"], ["media_device.power"]) not in ([["True"]], [["1"]]):
    sys.exit("entities of taken names are not dissected together")

print(f"tshark: {compared} packets, {values} values and {absent} absent ones as dp4 decode gives them; "
      f"{len(checks)} filters")
sys.exit(0 if compared == PACKETS * len(PRODUCTS) and values and absent else 1)
