"""Products, values and messages in Python's own terms."""

from __future__ import annotations

import json
import pickle
import threading
from typing import Any

import morvix_protocol
import pytest
from conftest import EXAMPLES, GOLDEN, PRODUCTS

NOTIFICATION = bytes.fromhex("04055a04640101")


def example(product: str) -> morvix_protocol.Entity:
    loaded = morvix_protocol.load(EXAMPLES / f"{product}.json")
    return loaded["gateway"] if product == "gateway" else loaded.entity()


def golden(name: str) -> Any:
    return json.loads((GOLDEN / name).read_text(encoding="utf-8"))


def packet_in(path: Any) -> bytes:
    return bytes.fromhex(path.read_text(encoding="utf-8"))


@pytest.mark.parametrize("product", PRODUCTS)
def test_golden_results_hold(product: str) -> None:
    entity = example(product)
    packet = packet_in(EXAMPLES / f"{product}.notify.hex")
    message = entity.decode(packet)
    assert message.document == golden(f"{product}.decoded.json")
    document, alerts, faults = entity.receive(packet)
    assert json.loads(document) == golden(f"{product}.flat.json")
    active = {"alerts": [each._asdict() for each in alerts], "faults": [each._asdict() for each in faults]}
    assert active == golden(f"{product}.active.json")
    assert (message.alerts, message.faults) == (tuple(alerts), tuple(faults))


@pytest.mark.parametrize("product", PRODUCTS)
def test_golden_writes_hold(product: str) -> None:
    entity = example(product)
    values = json.loads((EXAMPLES / f"{product}.values.json").read_text(encoding="utf-8"))[entity.name]
    types = {each.name: each.type for each in entity.attributes}
    for name, value in values.items():
        if types[name] == "binary":
            values[name] = morvix_protocol._product.base64.b64decode(value)
        elif isinstance(value, str):
            values[name] = int(value) if types[name] in ("bool", "enum") else float(value)
    assert entity.encode(values) == packet_in(GOLDEN / f"{product}.write.hex")


def test_sub_device_write_holds() -> None:
    thermostat = morvix_protocol.load(EXAMPLES / "gateway.json")["thermostat"]
    values = {"on": True, "mode": 2, "target": 21.5, "offset": -0.5, "away_until": 1767139200}
    assert thermostat.encode(values, command=7, sub_device=0x0A0B0C0D) == packet_in(
        GOLDEN / "gateway.subdevice.write.hex"
    )


def test_ids_may_be_given_signed_or_unsigned(kettle: Any) -> None:
    signed = kettle.encode({"power": True}, sub_device=-2)
    assert signed == kettle.encode({"power": True}, sub_device=0xFFFFFFFE) == bytes.fromhex("01feffffff010100")
    for wrong in (2**32, -(2**31) - 1):
        with pytest.raises(morvix_protocol.EncodeError, match="out of range; expected an id of 32 bits"):
            kettle.encode({"power": True}, sub_device=wrong)
        with pytest.raises(morvix_protocol.EncodeError, match="out of range; expected an id of 32 bits"):
            morvix_protocol.request(8, wrong)


def test_values_are_pythons(kettle: Any) -> None:
    message = kettle.decode(NOTIFICATION)
    assert message.command == 4
    assert message.values == {
        "power": True,
        "program": "keep_warm",
        "target": 85.0,
        "temperature": 92.4,
        "low_water": True,
        "lid_open": False,
        "sensor": True,
    }
    assert type(message.values["target"]) is float  # its ratio is 0.5
    assert kettle.decode(NOTIFICATION, items=False).values["program"] == 2
    assert message.alerts == (("Low water", 1),)
    assert message.faults == (morvix_protocol.Active("Sensor broken", 1),)


def test_whole_numbers_are_ints_and_binaries_bytes() -> None:
    values = example("gateway").decode(packet_in(EXAMPLES / "gateway.notify.hex")).values
    assert (values["signal"], type(values["signal"])) == (-67, int)
    assert values["label"] == b"Attic\0\0\0"
    assert values["network"] == bytes.fromhex("001a2b3c4d5e6f70")


@pytest.mark.parametrize("kind", [bytes, bytearray, memoryview])
def test_every_kind_of_bytes_is_taken(kettle: Any, kind: Any) -> None:
    data = kind(NOTIFICATION)
    assert kettle.decode(data) == kettle.decode(NOTIFICATION)
    assert kettle.receive(data) == kettle.receive(NOTIFICATION)
    assert kettle.to_frame([data]).equals(kettle.to_frame([NOTIFICATION]))
    gateway = example("gateway")
    assert gateway.encode({"label": kind(b"Attic")}).hex() == "01100000004174746963000000"
    configuration = kind((EXAMPLES / "kettle.json").read_bytes())
    assert morvix_protocol.loads(configuration).entity().name == "kettle"


def test_what_is_not_bytes_is_a_type_error(kettle: Any) -> None:
    for wrong in ("04055a", 7, None, [4, 5]):
        with pytest.raises(TypeError):
            kettle.decode(wrong)
        with pytest.raises(TypeError):
            kettle.to_frame([wrong])


@pytest.mark.parametrize(
    "values, text",
    [
        ({"program": "tea"}, "'program': 'tea' is not an item; expected one of: boil, green_tea, keep_warm"),
        ({"program": "1"}, "'program': '1' is not an item; expected one of: boil, green_tea, keep_warm"),
        ({"program": -1}, "'program': -1 is not the index of an item; expected 0 to 2"),
        ({"target": 200}, "'target': 200 is out of range; expected 40 to 100"),
        ({"target": "85"}, "'target': text is not taken; it is of type uint8"),
        ({"target": b"85"}, "'target': bytes are not taken; it is of type uint8"),
        ({"target": float("nan")}, "'target': nan is not a finite number"),
        ({"target": float("-inf")}, "'target': -inf is not a finite number"),
        ({"target": 10**400}, "'target': an integer of 1329 bits is out of range"),
        ({"target": object()}, "'target': a value of type object is not taken"),
        ({"kettle": {}}, "'kettle' is not an attribute of 'kettle'"),
        ({}, "nothing to write; expected a value of a writable attribute of 'kettle'"),
    ],
)
def test_refused_values_are_named(kettle: Any, values: Any, text: str) -> None:
    with pytest.raises(morvix_protocol.EncodeError) as caught:
        kettle.encode(values)
    assert str(caught.value) == text


def test_bytes_beyond_a_field_are_refused() -> None:
    with pytest.raises(morvix_protocol.EncodeError, match="'label': 9 bytes are too many; expected at most 8"):
        example("gateway").encode({"label": b"123456789"})


def test_commands_beyond_a_byte_are_refused(kettle: Any) -> None:
    for command in (-1, 256, 2**40):
        with pytest.raises(morvix_protocol.EncodeError, match=f"command {command} is out of range"):
            kettle.encode({"power": True}, command=command)


def test_configurations_come_in_three_ways(tmp_path: Any) -> None:
    text = (EXAMPLES / "kettle.json").read_text(encoding="utf-8")
    attributes = morvix_protocol.load(str(EXAMPLES / "kettle.json"))["kettle"].attributes
    assert morvix_protocol.loads(text)["kettle"].attributes == attributes
    assert morvix_protocol.from_dict(json.loads(text))["kettle"].attributes == attributes
    # Comments are allowed by the protocol module, and not by Python's json.
    assert morvix_protocol.loads("// a comment\n" + text).entity().name == "kettle"
    with pytest.raises(OSError):
        morvix_protocol.load(tmp_path / "missing.json")
    with pytest.raises(morvix_protocol.ConfigurationError):
        morvix_protocol.loads("{\ud800}")
    for wrong in ({"entities": float("nan")}, {"entities": object()}, {"entities": 1}):
        with pytest.raises(morvix_protocol.ConfigurationError):
            morvix_protocol.from_dict(wrong)


def test_every_error_is_a_protocol_error() -> None:
    for error in (
        morvix_protocol.ConfigurationError,
        morvix_protocol.EncodeError,
        morvix_protocol.DecodeError,
    ):
        assert issubclass(error, morvix_protocol.ProtocolError)
        assert issubclass(error, ValueError)


def test_products_and_entities_can_be_pickled() -> None:
    product = pickle.loads(pickle.dumps(morvix_protocol.load(EXAMPLES / "gateway.json")))
    assert [each.name for each in product.entities] == ["gateway", "thermostat"]
    entity = pickle.loads(pickle.dumps(product["thermostat"]))
    assert entity.attributes == product["thermostat"].attributes
    message = product["thermostat"].decode(bytes(8).replace(b"\0", b"\4", 1))
    assert pickle.loads(pickle.dumps(message)) == message


def test_attributes_cannot_be_changed(kettle: Any) -> None:
    with pytest.raises(AttributeError):
        kettle.attributes[0].name = "other"


def test_threads_may_share_an_entity(kettle: Any) -> None:
    expected = kettle.decode(NOTIFICATION)
    failures: list[Any] = []

    def work() -> None:
        for _ in range(300):
            if kettle.decode(NOTIFICATION) != expected or kettle.encode({"power": True}) != b"\1\1\1\0":
                failures.append(1)

    threads = [threading.Thread(target=work) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert failures == []


def test_the_version_is_the_modules() -> None:
    header = (EXAMPLES.parent / "Protocol/AllVersions/v4/ProtocolInternal_v4.0.h").read_text(encoding="utf-8")
    assert f'#define MORVIX_PROTOCOL_VERSION "{morvix_protocol.__version__}"' in header


def test_everything_public_is_documented() -> None:
    for name in morvix_protocol.__all__:
        thing = getattr(morvix_protocol, name)
        assert thing.__doc__ and not thing.__doc__.startswith(f"{name}("), name
        for member, value in vars(thing).items() if isinstance(thing, type) else ():
            if member.startswith("_") or not (callable(value) or isinstance(value, property)):
                continue
            assert value.__doc__, f"{name}.{member}"
