#!/usr/bin/python3
"""The C interface describes every entity of the examples and of the tests' configurations as dp4 show does.

Arguments: SOURCE_DIR BUILD_DIR WORK_DIR, as for the other scripts; the environment variable LIBRARY is the C interface's.
"""

import ctypes
import json
import os
import pathlib
import re
import subprocess
import sys

source, build = map(pathlib.Path, sys.argv[1:3])


class Bytes(ctypes.Structure):
    _fields_ = [("data", ctypes.POINTER(ctypes.c_char)), ("size", ctypes.c_size_t)]


library = ctypes.CDLL(os.environ["LIBRARY"])
library.morvix_entity_open.argtypes = [ctypes.c_char_p, ctypes.c_size_t, ctypes.c_char_p,
                                       ctypes.POINTER(ctypes.c_void_p), ctypes.c_void_p]
library.morvix_entity_describe.argtypes = [ctypes.c_void_p, ctypes.POINTER(Bytes)]
library.morvix_entity_close.argtypes = [ctypes.c_void_p]
library.morvix_free.argtypes = [ctypes.c_void_p]


def described(configuration):
    """The document of a configuration's only entity; None where it cannot be opened."""
    entity = ctypes.c_void_p()
    if library.morvix_entity_open(configuration, len(configuration), None, ctypes.byref(entity), None) != 0:
        return None
    document = Bytes()
    library.morvix_entity_describe(entity, ctypes.byref(document))
    library.morvix_entity_close(entity)
    text = document.data[:document.size]
    library.morvix_free(document.data)
    return text


def meaning(document):
    """The value of a document, in which any number of replacement characters may stand for what is not UTF-8."""
    return json.loads(re.sub(r"(\ufffd|\\ufffd)+", "\ufffd", document.decode()))


compared = failures = 0
for folder in "examples", "tests/lint", "tests/compare":
    for path in sorted((source / folder).rglob("*.json")):
        document = described(path.read_bytes())
        if document is None:
            continue
        shown = subprocess.run([build / "tools/dp4/dp4", "show", path, "--format", "json"], stdout=subprocess.PIPE).stdout
        compared += 1
        if meaning(shown) != meaning(document):
            failures += 1
            print(f"{path}\ndp4 show: {shown}\nC interface: {document}")
print(f"{compared} entities")
sys.exit(1 if failures or compared < 50 else 0)
