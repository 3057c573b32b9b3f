#!/usr/bin/python3
"""Holds schemas/product-configuration.schema.json and the module's parser against each other.

Usage: schema_test.py SOURCE_DIR BUILD_DIR WORK_DIR

The schema is checked by itself, then each document of the tables below is given to the schema and, through
BUILD_DIR/tests/schema_probe, to the module. Both verdicts are stated for each document: where the schema complains, and
which lines the module has for it and how many attributes it takes. Where one takes what the other does not, the row
names one of the DIFFERENCES. The documents are left in WORK_DIR.

The validator is Debian's python3-jsonschema, hence the system's interpreter in the first line.
"""

import copy
import json
import pathlib
import shutil
import socket
import subprocess
import sys

from jsonschema import Draft202012Validator

REMOVED = object()

# One entity with an attribute of each kind. An unusable scaling of the third costs the two after it as well.
BASE = {
    "name": "Heater",
    "protocolType": "data-point",
    "packetVersion": "0x4",
    "product_key": "heater",
    "entities": [
        {
            "id": 0,
            "name": "heater",
            "display_name": "Heater",
            "attrs": [
                {
                    "id": 0, "name": "power", "display_name": "Power", "desc": "Heats",
                    "type": "status_writable", "data_type": "bool",
                    "position": {"byte_offset": 0, "bit_offset": 0, "unit": "bit", "len": 1},
                },
                {
                    "id": 1, "name": "mode", "display_name": "Mode", "desc": "How much",
                    "type": "status_writable", "data_type": "enum", "enum": ["low", "middle", "high"],
                    "position": {"byte_offset": 0, "bit_offset": 1, "unit": "bit", "len": 2},
                },
                {
                    "id": 2, "name": "level", "display_name": "Level", "desc": "Percent",
                    "type": "status_writable", "data_type": "uint8",
                    "uint_spec": {"min": 0, "max": 100, "ratio": 1, "addition": 0},
                    "position": {"byte_offset": 1, "bit_offset": 0, "unit": "byte", "len": 1},
                },
                {
                    "id": 3, "name": "label", "display_name": "Label", "desc": "Name of the room",
                    "type": "status_readonly", "data_type": "binary",
                    "position": {"byte_offset": 2, "bit_offset": 0, "unit": "byte", "len": 4},
                },
                {
                    "id": 4, "name": "overheat", "display_name": "Overheat", "desc": "Too hot",
                    "type": "alert", "data_type": "bool",
                    "position": {"byte_offset": 6, "bit_offset": 0, "unit": "bit", "len": 1},
                },
            ],
        }
    ],
}
ENTITY = "/entities/0"
POWER, MODE, LEVEL, LABEL, OVERHEAT = (f"{ENTITY}/attrs/{i}" for i in range(5))
SCALING = f"{LEVEL}/uint_spec"
GROUPS = ["status_writable", "status_readonly", "alert", "fault"]
UNITS = ["bit", "byte"]
# With an attribute of BASE that may have the data type.
DATA_TYPES = {"bool": POWER, "enum": MODE, "binary": LABEL,
              "uint8": LEVEL, "uint16": LEVEL, "uint32": LEVEL, "uint64": LEVEL}

# Values that only one of the two accepts, and why that is intended.
DIFFERENCES = {
    # The schema takes it.
    "whole real":
        "To JSON Schema 1.0 is an integer like 1. The parser goes by how a number is written and stored, and refuses "
        "it where it reads integers of 32 bits.",
    "real zero":
        "Likewise the schema cannot tell 0.0 from 0. The parser takes reals as limits, but not this one.",
    # The parser takes it.
    "cut text":
        "The parser reads a number from the beginning of a string and ignores the rest. Whoever wrote the rest meant "
        "something by it.",
    "text up to a NUL":
        "A keyword ends at a NUL for the parser. No tool writes one on purpose.",
    "wrapping id":
        "Integers from 2147483648 to 4294967295 are read as negative ones.",
    "cut fraction":
        "Raw values are whole; the parser cuts the fraction of a limit off and logs nothing.",
    "unusable limits":
        "The parser judges no values. Beyond 0 <= min < max < 2^52 the codec refuses every value.",
    "unusable ratio":
        "With a ratio of 0 every raw value reads the same; without finite numbers no raw value reads as a number.",
    "unusable place":
        "The parser judges no places. No value comes through there: a bool is one bit; numbers and binaries are whole "
        "bytes; an enum has up to 64 bits or 8 bytes, a number up to 8 bytes; a payload has up to 16384 bytes.",
    "lost item":
        "The parser leaves out an item that is not a string, which shifts the later items.",
    "empty name":
        "An empty key works. But it is what an editor starts with, and it cannot be told from a forgotten name.",
    "entity called version":
        "The parser has no objection, but in a received document the protocol version replaces the entity.",
    "odd packet version":
        "The reader takes a beginning and cuts what is too long, and an empty text or a bare 0x is version 0.",
    "not read":
        "The module does not look at this member. People and editors do.",
}


class Case:
    """A document, made from BASE by edits, and what is expected of both sides.

    edits: from JSON pointer to the new value, or REMOVED.
    schema: the JSON pointers of the values that the schema complains about; empty when the document is valid.
    module: the probe's lines; skipped() makes those of skipped attributes.
    taken: the attributes that the parser takes, of all that the document lists.
    difference: a key of DIFFERENCES when only one of the two takes the document.
    """

    def __init__(self, title, edits, schema=(), module=(), taken=5, difference=""):
        self.title = title
        self.document = edited(BASE, edits)
        self.schema = sorted(schema)
        self.module = list(module)
        self.taken = taken
        self.difference = difference


def edited(document, edits):
    root = [copy.deepcopy(document)]
    for pointer, value in edits.items():
        *parents, last = [0] + [int(part) if part.isdigit() else part for part in pointer.split("/")[1:]]
        place = root
        for part in parents:
            place = place[part]
        if value is REMOVED:
            del place[last]
        else:
            place[last] = value
    return root[0]


def skipped(*members):
    return [f"warning Warning: '{member}' is invalid, skip." for member in members]


def lacks(member):
    return [f"warning Warning: Can't find '{member}' key."]


def broken_products():
    """Documents that both refuse: the members that are not part of an entity."""
    missing = ["entities missing"]
    yield Case("a list of products", {"": [BASE]}, [""], missing, 0)
    yield Case("a product that is null", {"": None}, [""], missing, 0)
    yield Case("no entities", {"/entities": REMOVED}, [""], missing, 0)
    yield Case("entities that are null", {"/entities": None}, ["/entities"], missing, 0)
    yield Case("one entity instead of a list", {"/entities": BASE["entities"][0]}, ["/entities"], missing, 0)
    unknown = ["device not selected"]
    yield Case("no protocol", {"/protocolType": REMOVED}, [""], unknown)
    yield Case("a protocol that is a number", {"/protocolType": 4}, ["/protocolType"], unknown)
    yield Case("an empty protocol", {"/protocolType": ""}, ["/protocolType"], unknown)
    yield Case("no packet version", {"/packetVersion": REMOVED}, [""], unknown)
    for version in ["4", "0X4", " 0x4", "0xversion", 4, 2147483647, -4, 4294967296, 4.5, True, None, ["0x4"]]:
        yield Case(f"packet version {json.dumps(version)}", {"/packetVersion": version}, ["/packetVersion"], unknown)
    no_debug, no_release = "device without debug key", "device without release key"
    for key in [7, True, None, ["heater"]]:
        yield Case(f"product key {json.dumps(key)}", {"/product_key": key}, ["/product_key"], [no_debug, no_release])
    yield Case("no key for release", {"/product_key": {"debug": "heater"}}, ["/product_key"], [no_release])
    yield Case("no key for debug", {"/product_key": {"release": "heater"}}, ["/product_key"], [no_debug])
    yield Case("an empty key for debug", {"/product_key": {"debug": "", "release": "heater"}},
               ["/product_key/debug"], [no_debug])
    yield Case("an empty key for release", {"/product_key": {"debug": "heater", "release": ""}},
               ["/product_key/release"], [no_release])
    yield Case("keys that are numbers", {"/product_key": {"debug": 1, "release": 2}},
               ["/product_key/debug", "/product_key/release"], [no_debug, no_release])


def broken_entities():
    """Documents that both refuse: the members of an entity. Each costs all of its attributes."""
    for entity in [None, 7, "heater", [1]]:
        yield Case(f"entity {json.dumps(entity)}", {ENTITY: entity}, [ENTITY], ["warning Warning: Invalid entity."], 0)
    for member in ["id", "name", "display_name", "attrs"]:
        yield Case(f"entity without {member}", {f"{ENTITY}/{member}": REMOVED}, [ENTITY], lacks(member), 0)
    wrong = {
        "id": [None, 1.5, "first", "#1", [1], {}, 4294967296, -2147483649],
        "name": [None, 7, True, ["heater"]],
        "display_name": [None, 7, {"en": "Heater"}],
        "attrs": [None, {}, {"power": {}}, "power", 0],
    }
    for member, values in wrong.items():
        for value in values:
            pointer = f"{ENTITY}/{member}"
            yield Case(f"entity with {member} {json.dumps(value)}", {pointer: value}, [pointer], lacks(member), 0)


def broken_attributes():
    """Documents that both refuse: the members of an attribute and of its position. Each costs the attribute."""
    for attribute in [None, 7, "label", ["label"]]:
        yield Case(f"attribute {json.dumps(attribute)}", {LABEL: attribute}, [LABEL], skipped("attr"), 4)
    for member in ["id", "name", "display_name", "desc", "type", "data_type", "position"]:
        yield Case(f"attribute without {member}", {f"{LABEL}/{member}": REMOVED}, [LABEL], skipped(member), 4)
    wrong = {
        "id": [None, 3.5, "third", [], {}, 4294967296],
        "name": [None, 3, False],
        "display_name": [None, 3, []],
        "desc": [None, 3, ["Name", "of the room"]],
        "type": [None, 2, "", "readonly", "status", " status_readonly", "status_readonly ", "alert,fault",
                 "status_readonly" + " " * 20, ["alert"]],
        "data_type": [None, 3, "", "boolean", "int8", "uint", "uint24", "binary[4]", {}],
        "position": [None, 2, "2:4", [2, 4]],
    }
    for member, values in wrong.items():
        for value in values:
            pointer = f"{LABEL}/{member}"
            yield Case(f"attribute with {member} {json.dumps(value)}", {pointer: value}, [pointer], skipped(member), 4)
    for keyword in GROUPS:
        for text in [keyword + "s", "x" + keyword]:
            yield Case(f"group {text}", {f"{OVERHEAT}/type": text}, [f"{OVERHEAT}/type"], skipped("type"), 4)
    for keyword, owner in DATA_TYPES.items():
        for text in [keyword + "s", "x" + keyword]:
            yield Case(f"data type {text}", {f"{owner}/data_type": text}, [f"{owner}/data_type"],
                       skipped("data_type"), 4)
    # What a data type or unit asks for is not asked for where that is missing or wrong.
    yield Case("no data type and nothing of what one would need",
               {f"{POWER}/data_type": REMOVED, f"{POWER}/enum": 7, f"{POWER}/uint_spec": 7,
                f"{POWER}/position/len": 9}, [POWER], skipped("data_type"), 4)
    yield Case("a number as data type and nothing of what one would need",
               {f"{POWER}/data_type": 1, f"{POWER}/enum": 7, f"{POWER}/uint_spec": 7, f"{POWER}/position/len": 9},
               [f"{POWER}/data_type"], skipped("data_type"), 4)
    yield Case("a number as unit and a place that no unit has",
               {f"{MODE}/position/unit": 1, f"{MODE}/position/bit_offset": -1, f"{MODE}/position/len": 65},
               [f"{MODE}/position/unit"], skipped("unit"), 4)
    yield Case("no unit and a place that no unit has",
               {f"{MODE}/position/unit": REMOVED, f"{MODE}/position/bit_offset": -1, f"{MODE}/position/len": 65},
               [f"{MODE}/position"], skipped("unit"), 4)
    # The member of the position is required in byte units as well, where it is not used.
    for attribute in [POWER, LEVEL]:
        for member in ["byte_offset", "bit_offset", "unit", "len"]:
            yield Case(f"position of {attribute} without {member}", {f"{attribute}/position/{member}": REMOVED},
                       [f"{attribute}/position"], skipped(member), 4)
    for member, values in {
        "byte_offset": [None, 0.5, "zero", [], {}, 4294967296],
        "bit_offset": [None, 0.5, "zero", [], {}, -2147483649],
        "len": [None, 1.5, "one", [], {}, 4294967296],
        "unit": [None, 0, True, ["byte"]],
    }.items():
        for value in values:
            pointer = f"{LABEL}/position/{member}"
            yield Case(f"position with {member} {json.dumps(value)}", {pointer: value}, [pointer], skipped(member), 4)
    for unit in ["bits", "xbit", "bytes", "xbyte", "word", " byte", "byte "]:
        for attribute in [POWER, MODE, LEVEL, LABEL]:
            pointer = f"{attribute}/position/unit"
            yield Case(f"unit {json.dumps(unit)} of {attribute}", {pointer: unit}, [pointer],
                       skipped("position.unit"), 4)
    yield Case("enum without items", {f"{MODE}/enum": REMOVED}, [MODE], skipped("enum"), 4)
    for items in [None, [], {}, {"low": 0}, "low,high", 3]:
        pointer = f"{MODE}/enum"
        yield Case(f"enum with items {json.dumps(items)}", {pointer: items}, [pointer], skipped("enum"), 4)


def broken_scalings():
    """Documents that both refuse: the scaling. What was read of it is inherited by the attributes after it."""
    yield Case("number without scaling", {SCALING: REMOVED}, [LEVEL], skipped("uint_spec"), 4)
    yield Case("scaling null", {SCALING: None}, [SCALING], skipped("uint_spec"), 4)
    for scaling in [[0, 100, 1, 0], "0..100", 100]:
        yield Case(f"scaling {json.dumps(scaling)}", {SCALING: scaling}, [SCALING],
                   skipped("uint_spec", "min", "min"), 2)
    for member in ["min", "max", "ratio", "addition"]:
        yield Case(f"scaling without {member}", {f"{SCALING}/{member}": REMOVED}, [SCALING], skipped(*[member] * 3), 2)
    for member, values in {
        "min": [None, "low", "#0"],
        "max": [None, "high", "-"],
        "ratio": [None, True, False, "half", [1], {"up": 1}],
        "addition": [None, True, False, "about 20", [0], {}],
    }.items():
        for value in values:
            yield Case(f"scaling with {member} {json.dumps(value)}", {f"{SCALING}/{member}": value},
                       [f"{SCALING}/{member}"], skipped(*[member] * 3), 2)
    for member in ["min", "max"]:
        for value in [[], {}, [0]]:
            yield Case(f"scaling with {member} {json.dumps(value)}", {f"{SCALING}/{member}": value},
                       [f"{SCALING}/{member}"], ["thrown"], 2)
    yield Case("a scaling that lacks a limit, then a whole one",
               {f"{SCALING}/max": REMOVED, LABEL: edited(BASE["entities"][0]["attrs"][2], {"/name": "second"})},
               [SCALING], skipped("max"), 4)


def fine_documents():
    """Documents that both take."""
    yield Case("the plain one", {})
    members = ["/name", "/protocolType", "/packetVersion", "/product_key"]
    yield Case("entities only", {pointer: REMOVED for pointer in members})
    yield Case("a reference to the schema", {"/$schema": "product-configuration.schema.json"})
    yield Case("no entity", {"/entities": []}, taken=0)
    yield Case("no attribute", {f"{ENTITY}/attrs": []}, taken=0)
    yield Case("two entities", {"/entities": BASE["entities"] * 2}, taken=10)
    yield Case("an empty description", {f"{LABEL}/desc": ""})
    yield Case("unknown members",
               {"/maker": 1, f"{ENTITY}/icon": None, f"{LABEL}/color": [], f"{LABEL}/position/bits": {},
                f"{SCALING}/step": "x"})
    yield Case("an empty product key", {"/product_key": ""})
    yield Case("a product key for each build", {"/product_key": {"debug": "a", "release": "b", "test": 3}})
    for version in ["0x0", "0xFFFFFFFF", "0x00000004", 2147483648, 4294967295]:
        yield Case(f"packet version {json.dumps(version)}", {"/packetVersion": version})

    yield Case("names of one letter",
               {"/protocolType": "p", f"{ENTITY}/name": "e", f"{ENTITY}/display_name": "E", f"{LABEL}/name": "a",
                f"{LABEL}/display_name": "A", "/product_key": {"debug": "d", "release": "r"}})
    for group in GROUPS:
        for text in [group, group.upper(), group.title()]:
            yield Case(f"group {text}", {f"{OVERHEAT}/type": text})
    for data_type, attribute in DATA_TYPES.items():
        for text in [data_type, data_type.upper(), data_type.title()]:
            yield Case(f"data type {text}", {f"{attribute}/data_type": text})
    for unit in ["byte", "BYTE", "Byte", ""]:
        yield Case(f"unit {json.dumps(unit)} of a number", {f"{LEVEL}/position/unit": unit})
        yield Case(f"unit {json.dumps(unit)} of an enum", {f"{MODE}/position/unit": unit})
    for unit in ["BIT", "Bit"]:
        yield Case(f"unit {unit}", {f"{POWER}/position/unit": unit})

    for number in [-2147483648, 2147483647, True, False, "", " ", "12", " \t\n\v\f\r12", "-12", "+12", "0x1F", "-0X1f",
                   "017", "0"]:
        yield Case(f"ids {json.dumps(number)}", {f"{ENTITY}/id": number, f"{LABEL}/id": number})
        yield Case(f"bit offset {json.dumps(number)} in byte units", {f"{LABEL}/position/bit_offset": number})
    for number in [0, 16383, True, False, "", "1", " 1", "0x10", "+017"]:
        yield Case(f"byte offset {json.dumps(number)}", {f"{LABEL}/position/byte_offset": number})
    for number in [0, 7, 131071, True, "", "7", "0x7", "007"]:
        yield Case(f"bit offset {json.dumps(number)} in bit units", {f"{MODE}/position/bit_offset": number})
    for number in [1, 16384, True, "4", "0x4", "010", "100"]:
        yield Case(f"length {json.dumps(number)} of a binary", {f"{LABEL}/position/len": number})
    for number in [1, True, "1", " 1", "+1", "0x1", "0X01", "001"]:
        yield Case(f"length {json.dumps(number)} of a bool", {f"{POWER}/position/len": number})
    for number in [1, 64, "64"]:
        yield Case(f"length {json.dumps(number)} of an enum in bits", {f"{MODE}/position/len": number})
    for number in [1, 8, True, "1", "7", " 8", "+8", "0x8", "0X01", "007", "010", "0010"]:
        yield Case(f"length {json.dumps(number)} of a number", {f"{LEVEL}/position/len": number})
        yield Case(f"length {json.dumps(number)} of an enum in bytes",
                   {f"{MODE}/position/len": number, f"{MODE}/position/unit": "byte"})
    for number in [1, 1.0, 4503599627370494, True, False, "", "0", "0x0", "017", "99"]:
        yield Case(f"min {json.dumps(number)}", {f"{SCALING}/min": number})
    for number in [1, 100.0, 4503599627370495, 4294967296, True, "1", "0xFF", "+0100", "4503599627370495"]:
        yield Case(f"max {json.dumps(number)}", {f"{SCALING}/max": number})
    for number in [0.1, -2, 1e9, "1", "+1.", "-.5", "00.10", "5E-1", "1e5", "1e+05", ".25", "1e-10", "0x10", "0x0A00",
                   " 1"]:
        yield Case(f"ratio {json.dumps(number)}", {f"{SCALING}/ratio": number})
    for number in [0, 0.0, -20.5, 5000000000, "", " ", "0", "-20.5", "+1.", ".25", "2e+1", "2E10", "0x10"]:
        yield Case(f"addition {json.dumps(number)}", {f"{SCALING}/addition": number})

    yield Case("items and scalings where they are ignored",
               {f"{POWER}/enum": None, f"{POWER}/uint_spec": None, f"{MODE}/uint_spec": 7, f"{LEVEL}/enum": [],
                f"{LABEL}/enum": {}, f"{LABEL}/uint_spec": "x"})
    yield Case("one item, which is empty", {f"{MODE}/enum": [""]})
    # Neither of the two compares values with each other, nor measures what stands in a text.
    yield Case("min above max", {f"{SCALING}/min": 200})
    yield Case("a name given twice", {f"{LEVEL}/name": "mode", f"{LEVEL}/id": 1})
    yield Case("a limit that is too large, in text", {f"{SCALING}/max": "4503599627370496"})


def differing_documents():
    """Documents that only one of the two takes."""
    whole = "whole real"
    yield Case("entity id 1.0", {f"{ENTITY}/id": 1.0}, [], lacks("id"), 0, whole)
    yield Case("attribute id 3.0", {f"{LABEL}/id": 3.0}, [], skipped("id"), 4, whole)
    for member, number in {"byte_offset": 2.0, "bit_offset": 0.0, "len": 4.0}.items():
        yield Case(f"{member} {number}", {f"{LABEL}/position/{member}": number}, [], skipped(member), 4, whole)
    yield Case("min 0.0", {f"{SCALING}/min": 0.0}, [], skipped("min", "min", "min"), 2, "real zero")

    def stricter(difference, pointer, *values):
        for value in values:
            yield Case(f"{pointer} {json.dumps(value)}", {pointer: value}, [pointer], [], 5, difference)

    yield from stricter("cut text", f"{ENTITY}/id", "7th", "1.5", "08")
    yield from stricter("cut text", f"{LABEL}/id", "3 ", "3e2")
    yield from stricter("cut text", f"{LABEL}/position/byte_offset", "2.5", "2 bytes", "08")
    yield from stricter("cut text", f"{LABEL}/position/bit_offset", "0b1", "1.0")
    yield from stricter("cut text", f"{LABEL}/position/len", "4 bytes", "1e2")
    yield from stricter("cut text", f"{SCALING}/min", "1,000", "1.5")
    yield from stricter("cut text", f"{SCALING}/max", "1e3", "100%")
    yield from stricter("cut text", f"{SCALING}/ratio", "0.5 degrees", "1,5", "1/2", "0x10 ")
    yield from stricter("cut text", f"{SCALING}/addition", "-20 degrees", "1,5", "5.5.")
    yield from stricter("text up to a NUL", f"{OVERHEAT}/type", "alert\0")
    yield from stricter("text up to a NUL", f"{LEVEL}/data_type", "uint8\0uint16")
    yield from stricter("text up to a NUL", f"{LABEL}/position/unit", "byte\0s")
    yield from stricter("wrapping id", f"{ENTITY}/id", 2147483648, 4294967295)
    yield from stricter("wrapping id", f"{LABEL}/id", 2147483648)
    yield from stricter("cut fraction", f"{SCALING}/min", 0.5, 2.9)
    yield from stricter("cut fraction", f"{SCALING}/max", 99.9)
    # Saturated where 64 bits do not hold them, unsigned when compared.
    yield from stricter("unusable limits", f"{SCALING}/min", -1, "-1", 4503599627370495, 2**63, 2**64)
    yield from stricter("unusable limits", f"{SCALING}/max", 0, False, "", " ", "0", "0x0", "-1", -1, 2**52, 2**64 - 1,
                        1e30)
    yield from stricter("unusable ratio", f"{SCALING}/ratio", 0, 0.0, -0.0, "0", "-0.00", "0e5", ".0", "0x0", "", " ",
                        "nan", "inf", "-infinity")
    yield from stricter("unusable ratio", f"{SCALING}/addition", "nan", "inf")

    place = "unusable place"
    for attribute in [POWER, LEVEL, LABEL]:
        yield from stricter(place, f"{attribute}/position/byte_offset", -1, "-1", 16384, 2147483648)
    yield from stricter(place, f"{POWER}/position/bit_offset", -1, "-1", 131072)
    yield from stricter(place, f"{MODE}/position/bit_offset", -1, "-2", 131072, 4294967295)
    for attribute in [POWER, MODE, LEVEL, LABEL]:
        yield from stricter(place, f"{attribute}/position/len", 0, False, "", " ", "0", "00", "0x0", -1, "-1",
                            2147483648)
    yield from stricter(place, f"{POWER}/position/unit", "byte", "")
    yield from stricter(place, f"{POWER}/position/len", 2, "2", "0x11", "10")
    yield from stricter(place, f"{MODE}/position/len", 65)
    yield from stricter(place, f"{LEVEL}/position/unit", "bit", "BIT")
    yield from stricter(place, f"{LEVEL}/position/len", 9, "9", "16", "0x9", "011")
    yield from stricter(place, f"{LABEL}/position/unit", "bit")
    yield from stricter(place, f"{LABEL}/position/len", 16385)
    for length in [9, "9"]:
        yield Case(f"enum of {json.dumps(length)} bytes",
                   {f"{MODE}/position/unit": "byte", f"{MODE}/position/len": length},
                   [f"{MODE}/position/len"], [], 5, place)

    for item in [1, None, True, ["middle"]]:
        yield Case(f"item {json.dumps(item)}", {f"{MODE}/enum/1": item}, [f"{MODE}/enum/1"], [], 5, "lost item")
    for owner in [ENTITY, LABEL]:
        yield from stricter("empty name", f"{owner}/name", "")
        yield from stricter("empty name", f"{owner}/display_name", "")
    yield from stricter("entity called version", f"{ENTITY}/name", "version")
    yield from stricter("odd packet version", "/packetVersion", "", "0x", "0", "0x4 beta", "0x123456789", "0x 4")
    yield from stricter("not read", "/name", 7, None)
    yield from stricter("not read", "/$schema", 7)


class Failures:
    def __init__(self):
        self.count = 0

    def add(self, subject, text):
        self.count += 1
        print(f"{subject}: {text}")


def subschemas(schema, pointer=""):
    """The schema and all schemas inside it, each with its JSON pointer."""
    yield pointer, schema
    for keyword in ["items", "not", "if", "then"]:
        if keyword in schema:
            yield from subschemas(schema[keyword], f"{pointer}/{keyword}")
    for keyword in ["allOf", "anyOf"]:
        for index, inner in enumerate(schema.get(keyword, [])):
            yield from subschemas(inner, f"{pointer}/{keyword}/{index}")
    for keyword in ["properties", "$defs"]:
        for name, inner in schema.get(keyword, {}).items():
            yield from subschemas(inner, f"{pointer}/{keyword}/{name}")


# All keywords that the schema uses. The metaschema ignores unknown keywords, including misspelt ones.
KEYWORDS = set(
    "$schema $defs $ref $comment title description examples type enum const format pattern minLength minimum maximum "
    "items minItems properties required dependentRequired allOf anyOf not if then".split()
)


def complaints(validator, document):
    """The JSON pointers of what the validator complains about, each once."""
    paths = ("".join(f"/{part}" for part in error.absolute_path) for error in validator.iter_errors(document))
    return sorted(set(paths))


def check_form(schema, failures):
    """What has to hold before anything can be checked with the schema."""
    metaschema = Draft202012Validator(Draft202012Validator.META_SCHEMA)
    for pointer in complaints(metaschema, schema):
        failures.add(f"schema{pointer}", "the metaschema refuses it")
    # The metaschema looks into every corner.
    for pointer in ["", "/$defs/attribute/allOf/1/then/properties/enum", "/$defs/position/then/properties/len"]:
        misspelt = edited(schema, {f"{pointer}/type": "strng"})
        if complaints(metaschema, misspelt) != [f"{pointer}/type"]:
            failures.add(f"schema{pointer}", "the metaschema does not notice an unknown type")

    definitions = set()
    for pointer, inner in subschemas(schema):
        for keyword in sorted(set(inner) - KEYWORDS):
            failures.add(f"schema{pointer}", f"unknown keyword {keyword}")
        if "$ref" in inner:
            definitions.add(inner["$ref"])
    expected = {f"#/$defs/{name}" for name in schema["$defs"]}
    for reference in sorted(definitions ^ expected):
        failures.add("schema", f"{reference} is not both defined and used")


def check_help(schema, failures):
    """What editors show."""
    for pointer, inner in subschemas(schema):
        validator = Draft202012Validator(schema).evolve(schema=inner)
        for example in inner.get("examples", []):
            for path in complaints(validator, example):
                failures.add(f"schema{pointer}", f"its own example is invalid at {path or 'the top'}")
    described = {
        "": "$schema name protocolType packetVersion product_key entities",
        "/properties/product_key": "debug release",
        "/$defs/entity": "id name display_name attrs",
        "/$defs/attribute": "id name display_name desc type data_type position uint_spec enum",
        "/$defs/position": "byte_offset bit_offset unit len",
        "/$defs/scaling": "min max ratio addition",
    }
    places = dict(subschemas(schema))
    for pointer, names in described.items():
        members = places[pointer]["properties"]
        if set(members) != set(names.split()):
            failures.add(f"schema{pointer}", f"the members are {sorted(members)}")
        for name, member in members.items():
            shown = {**places[member["$ref"][1:]], **member} if "$ref" in member else member
            if not shown.get("title") or not shown.get("description"):
                failures.add(f"schema{pointer}/properties/{name}", "no title or no description")
    for pointer, keywords in {
        "/$defs/group": GROUPS,
        "/$defs/dataType": list(DATA_TYPES),
        "/$defs/position/properties/unit": UNITS,
    }.items():
        if places[pointer]["anyOf"][0] != {"enum": keywords}:
            failures.add(f"schema{pointer}", f"editors should be offered {keywords}")


def probe(program, file):
    """The module's lines for a document, and how many attributes it takes."""
    with open(file, "rb") as document:
        result = subprocess.run([program], stdin=document, capture_output=True, check=False)
    lines = result.stdout.decode().splitlines()
    if result.returncode != 0:
        lines += [f"exit code {result.returncode}: {result.stderr.decode()}"]
    counts = [line for line in lines if line.startswith("attributes ")]
    taken = sum(int(line.split()[1]) for line in counts)
    return [line for line in lines if line not in counts], taken


def count_attributes(document):
    """How many elements the attribute lists of a document have."""
    entities = document.get("entities") if isinstance(document, dict) else None
    if not isinstance(entities, list):
        return 0
    lists = [entity.get("attrs") for entity in entities if isinstance(entity, dict)]
    return sum(len(attributes) for attributes in lists if isinstance(attributes, list))


def check_case(case, validator, program, file, failures):
    file.write_text(json.dumps(case.document, indent=2) + "\n")
    subject = f"{file.name} ({case.title})"
    found = complaints(validator, case.document)
    if found != case.schema:
        failures.add(subject, f"the schema complains about {found}, not {case.schema}")
    lines, taken = probe(program, file)
    if lines != case.module:
        failures.add(subject, f"the module says {lines}, not {case.module}")
    if taken != case.taken:
        failures.add(subject, f"the module takes {taken} attributes, not {case.taken}")

    is_valid = not found
    is_taken = not lines and taken == count_attributes(case.document)
    if (is_valid != is_taken) != bool(case.difference):
        known = case.difference or "none"
        failures.add(subject, f"valid: {is_valid}, taken whole: {is_taken}, known difference: {known}")


def main():
    source_dir, build_dir, work_dir = map(pathlib.Path, sys.argv[1:])
    shutil.rmtree(work_dir, ignore_errors=True)
    work_dir.mkdir(parents=True)
    program = build_dir / "tests" / "schema_probe"
    failures = Failures()

    # All of this works without a network: a reference that is not resolved here is an error.
    def refuse(*_, **__):
        raise ConnectionRefusedError("the schema must not fetch anything")

    socket.getaddrinfo = socket.create_connection = refuse

    schema = json.loads((source_dir / "schemas" / "product-configuration.schema.json").read_text())
    check_form(schema, failures)
    if failures.count:
        return 1
    check_help(schema, failures)
    validator = Draft202012Validator(schema)

    for name in ["air_conditioner", "gateway", "kettle", "power_meter"]:
        file = source_dir / "examples" / f"{name}.json"
        document = json.loads(file.read_text())
        for path in complaints(validator, document):
            failures.add(file.name, f"the schema complains about {path or 'the top'}")
        lines, taken = probe(program, file)
        if lines or taken != count_attributes(document) or taken == 0:
            failures.add(file.name, f"the module takes {taken} attributes and says {lines}")

    broken = [*broken_products(), *broken_entities(), *broken_attributes(), *broken_scalings()]
    fine = list(fine_documents())
    differing = list(differing_documents())
    for number, case in enumerate([*broken, *fine, *differing]):
        check_case(case, validator, program, work_dir / f"{number:03}.json", failures)
    for difference in sorted(set(DIFFERENCES) ^ {case.difference for case in differing}):
        failures.add("differences", f"'{difference}' is not both explained and shown")
    print(f"{len(broken)} broken, {len(fine)} fine and {len(differing)} differing documents: {failures.count} failures")
    return 1 if failures.count else 0


if __name__ == "__main__":
    sys.exit(main())
