"""Test vectors that dp4 makes of the examples hold: MORVIX_VECTORS is a folder of PRODUCT.ENTITY.json."""

from __future__ import annotations

import base64
import json
import os
import pathlib
from typing import Any

import morvix_protocol
import pytest
from conftest import EXAMPLES

FOLDER = os.environ.get("MORVIX_VECTORS")
FILES = sorted(pathlib.Path(FOLDER).glob("*.json")) if FOLDER else []


def plain(value: Any) -> Any:
    return base64.b64encode(value).decode("ascii") if isinstance(value, bytes) else value


def taken(entity: morvix_protocol.Entity, values: dict[str, Any]) -> dict[str, Any]:
    """Values as `encode` takes them."""
    binaries = {each.name for each in entity.attributes if each.type == "binary"}
    return {name: base64.b64decode(value) if name in binaries else value for name, value in values.items()}


@pytest.mark.skipif(not FOLDER, reason="MORVIX_VECTORS is not set")
def test_there_are_vectors_of_every_entity() -> None:
    assert len(FILES) == 5


@pytest.mark.parametrize("file", FILES, ids=[file.stem for file in FILES])
def test_vectors_hold(file: pathlib.Path) -> None:
    product, name = file.stem.split(".")
    entity = morvix_protocol.load(EXAMPLES / f"{product}.json")[name]
    vectors = json.loads(file.read_text(encoding="utf-8"))
    assert vectors["entity"] == entity.name and vectors["writes"] and vectors["notifications"]
    for write in vectors["writes"]:
        assert entity.encode(taken(entity, write["values"])) == bytes.fromhex(write["packet"])
    for notification in vectors["notifications"]:
        message = entity.decode(bytes.fromhex(notification["packet"]), items=False)
        assert message.document == notification["document"]
        assert {key: plain(value) for key, value in message.values.items()} == notification["values"]
    for refused in vectors["refused"]:
        with pytest.raises(morvix_protocol.EncodeError):
            entity.encode(taken(entity, refused["values"]))
