"""The cases that every language runs."""

from __future__ import annotations

import dataclasses
import json
from typing import Any

import morvix_protocol
import pytest
from conftest import CONFORMANCE, ROOT

CASES = [case for case in CONFORMANCE["cases"] if "python" in case.get("languages", ["python"])]
SNAKE_CASE = {"displayName": "display_name", "writePlace": "write_place", "firstBit": "first_bit"}


def configuration_of(case: dict[str, Any]) -> bytes:
    configuration = CONFORMANCE["configurations"][case["configuration"]]
    if "file" in configuration:
        return (ROOT / configuration["file"]).read_bytes()
    if "json" in configuration:
        return json.dumps(configuration["json"]).encode()
    return configuration["text"].encode() if "text" in configuration else bytes.fromhex(configuration["hex"])


def opened(case: dict[str, Any]) -> morvix_protocol.Entity:
    product = morvix_protocol.loads(configuration_of(case))
    return product[case["entity"]] if "entity" in case else product.entity()


def packet_of(case: dict[str, Any]) -> bytes:
    packet = bytes.fromhex(case["packet"])
    return packet.ljust(case.get("size", 0), b"\0")


def in_snake_case(value: Any) -> Any:
    if isinstance(value, dict):
        return {SNAKE_CASE.get(key, key): in_snake_case(each) for key, each in value.items()}
    return [in_snake_case(each) for each in value] if isinstance(value, list) else value


def plain(value: Any) -> Any:
    """A dataclass as JSON has it: without members that are None."""
    given = {key: each for key, each in dataclasses.asdict(value).items() if each is not None}
    if given.get("items") is not None:
        given["items"] = list(given["items"])
    return given


def entities(case: dict[str, Any]) -> None:
    product = morvix_protocol.loads(configuration_of(case))
    found = [{"id": each.id, "name": each.name, "displayName": each.display_name} for each in product.entities]
    assert found == case["result"]
    assert "\n".join(product.warnings) == case.get("message", "")


def open_entity(case: dict[str, Any]) -> None:
    assert "\n".join(opened(case).warnings) == case.get("message", "")


def describe(case: dict[str, Any]) -> None:
    entity = opened(case)
    found = {
        "name": entity.name,
        "display_name": entity.display_name,
        "id": entity.id,
        "payloadBytes": entity.payload_bytes,
        "writeBytes": entity.write_bytes,
        "attributes": [plain(each) for each in entity.attributes],
        "dropped": [plain(each) for each in entity.dropped],
    }
    assert found == in_snake_case(case["result"])


def encode(case: dict[str, Any]) -> None:
    entity = opened(case)
    packet = entity.encode(case["values"][entity.name], case.get("command", 1), case.get("subDevice"))
    assert packet.hex() == case["result"]


def request(case: dict[str, Any]) -> None:
    assert morvix_protocol.request(case["command"], case.get("subDevice")).hex() == case["result"]


def decode(case: dict[str, Any]) -> None:
    message = opened(case).decode(packet_of(case))
    assert message.document == case["result"]
    assert "\n".join(message.warnings) == case.get("message", "")


def receive(case: dict[str, Any]) -> None:
    document, alerts, faults = opened(case).receive(packet_of(case))
    found = {
        "document": document,
        "alerts": [each._asdict() for each in alerts],
        "faults": [each._asdict() for each in faults],
    }
    assert found == case["result"]


def table(case: dict[str, Any]) -> None:
    frame = opened(case).to_frame([bytes.fromhex(packet) for packet in case["packets"]], items=False)
    for column, expected in zip(frame.columns, case["result"]["values"]):
        found = [None if is_na else value for value, is_na in zip(frame[column], frame[column].isna())]
        assert found == expected, column


CALLS = {
    "entities": (entities, morvix_protocol.ConfigurationError),
    "open": (open_entity, morvix_protocol.ConfigurationError),
    "describe": (describe, morvix_protocol.ConfigurationError),
    "encode": (encode, morvix_protocol.EncodeError),
    "request": (request, morvix_protocol.EncodeError),
    "decode": (decode, morvix_protocol.DecodeError),
    "receive": (receive, morvix_protocol.DecodeError),
    "table": (table, morvix_protocol.DecodeError),
}


@pytest.mark.parametrize("case", CASES, ids=[case["name"] for case in CASES])
def test_case(case: dict[str, Any]) -> None:
    call, error = CALLS[case["call"]]
    if case.get("status", "ok") == "ok":
        call(case)
        return
    with pytest.raises(error) as caught:
        call(case)
    assert str(caught.value) == case["message"]


def test_most_cases_are_for_python() -> None:
    assert len(CASES) > 50
