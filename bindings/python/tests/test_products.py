"""Products, values and messages in Python's own terms."""

from __future__ import annotations

import json
import pickle
import threading
from fractions import Fraction
from typing import Any

import morvix_protocol
import numpy
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
        message = f"sub-device {wrong} is out of range; expected an integer from -2147483648 to 4294967295"
        with pytest.raises(morvix_protocol.EncodeError, match=message):
            kettle.encode({"power": True}, sub_device=wrong)
        with pytest.raises(morvix_protocol.EncodeError, match=message):
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
        ({"target": "85"}, "'target': text is not taken; it is of type uint8; expected an int or float"),
        ({"target": b"85"}, "'target': bytes are not taken; it is of type uint8; expected an int or float"),
        ({"power": "on"}, "'power': text is not taken; it is of type bool; expected a bool or int"),
        (
            {"program": b"boil"},
            "'program': bytes are not taken; it is of type enum; expected the text of an item, or its index as an int",
        ),
        ({"target": float("nan")}, "'target': NaN is not a finite number"),
        ({"target": float("-inf")}, "'target': -Infinity is not a finite number"),
        ({"target": 2**64}, "'target': 1.8446744073709552e+19 is out of range; expected 40 to 100"),
        ({"target": 10**400}, "'target': 1.7976931348623157e+308 is out of range; expected 40 to 100"),
        ({"target": -(10**400)}, "'target': -1.7976931348623157e+308 is out of range; expected 40 to 100"),
        ({"target": Fraction(10**400)}, "'target': 1.7976931348623157e+308 is out of range; expected 40 to 100"),
        (
            {"program": 2**64},
            "'program': 18446744073709551615 is of a kind that it does not take; expected the index of an item, as an "
            "integer or decimal text",
        ),
        (
            {"target": object()},
            "'target': a value of type object is not taken; it is of type uint8; expected an int or float",
        ),
        ({"kettle": {}}, "'kettle' is not an attribute of 'kettle'"),
        ({}, "nothing to write; expected a value of a writable attribute of 'kettle'"),
    ],
)
def test_refused_values_are_named(kettle: Any, values: Any, text: str) -> None:
    with pytest.raises(morvix_protocol.EncodeError) as caught:
        kettle.encode(values)
    assert str(caught.value) == text


def test_values_are_a_mapping(kettle: Any) -> None:
    for wrong in (None, [("power", True)], "power"):
        with pytest.raises(TypeError, match="^values are a mapping by attribute name, not (NoneType|list|str)$"):
            kettle.encode(wrong)
    for wrong in ("1", 1.0, None):
        with pytest.raises(TypeError, match="cannot be interpreted as an integer"):
            kettle.encode({"power": True}, command=wrong)
    for wrong in ("5", 5.0):
        with pytest.raises(TypeError, match="cannot be interpreted as an integer"):
            morvix_protocol.request(8, wrong)


def test_scalars_of_numpy_are_taken(kettle: Any) -> None:
    values = {"power": numpy.bool_(True), "program": numpy.str_("keep_warm"), "target": numpy.float32(85)}
    assert kettle.encode(values) == kettle.encode({"power": True, "program": 2, "target": 85})
    assert kettle.encode({"program": numpy.uint8(2), "target": numpy.array(85)}) == bytes.fromhex("0106045a")
    with pytest.raises(morvix_protocol.EncodeError, match="'target': a value of type ndarray is not taken"):
        kettle.encode({"target": numpy.array([85])})


def attribute(index: int, name: str, group: str, data_type: str, byte: int, length: int, **more: Any) -> Any:
    position = {"byte_offset": byte, "bit_offset": 0, "unit": "byte", "len": length}
    display_name = more.pop("display_name", name.title())
    attribute = {"id": index, "name": name, "display_name": display_name, "desc": "", "type": group}
    return {**attribute, "data_type": data_type, "position": position, **more}


def entity_of(*attributes: Any) -> morvix_protocol.Entity:
    entity = {"id": 0, "name": "test", "display_name": "Test", "attrs": list(attributes)}
    return morvix_protocol.from_dict({"entities": [entity]}).entity()


def test_values_are_in_the_order_of_the_attributes() -> None:
    scaling = {"min": 0, "max": 9, "ratio": 1, "addition": 0}
    entity = entity_of(
        attribute(0, "tag", "status_readonly", "binary", 0, 2),
        attribute(1, "level", "status_readonly", "uint8", 2, 1, uint_spec=scaling),
        attribute(2, "rest", "fault", "binary", 3, 1),
    )
    values = entity.decode(b"\4ab\7c").values
    assert list(values.items()) == [("tag", b"ab"), ("level", 7), ("rest", b"c")]
    # 10 is beyond the range of "level".
    assert entity.decode(b"\3ab\12c").values == {"tag": b"ab", "rest": b"c"}
    # A binary that is not in the payload removes the entity from the document.
    assert entity.decode(b"\3ab\7").values == {}


def test_binaries_end_with_an_index_without_item() -> None:
    entity = entity_of(
        attribute(0, "tag", "status_readonly", "binary", 0, 2),
        attribute(1, "mode", "status_readonly", "enum", 2, 1, enum=["off", "on"]),
        attribute(2, "rest", "status_readonly", "binary", 3, 1),
    )
    assert entity.decode(b"\4ab\1c").values == {"tag": b"ab", "mode": "on", "rest": b"c"}
    # Decoding ends at the index 2.
    assert entity.decode(b"\4ab\2c").values == {"tag": b"ab"}


def test_a_binary_may_share_its_key_in_documents() -> None:
    # The alert is "L" in the document, and comes later.
    entity = entity_of(
        attribute(0, "L", "status_writable", "binary", 0, 1),
        attribute(
            1, "low", "alert", "uint8", 1, 1, display_name="L", uint_spec={"min": 0, "max": 9, "ratio": 1, "addition": 0}
        ),
    )
    message = entity.decode(b"\4\7\1")
    assert message.values == {"L": b"\7", "low": 1}
    assert message.document == {"test": {"L": {"type": 4, "value": "1"}}}


def test_a_binary_is_not_told_by_another_attribute_of_its_key() -> None:
    # Decoding ends at "mode" where its index is 5. What the document has as "blob" is the alert.
    position_of_bit = {"byte_offset": 0, "bit_offset": 0, "unit": "bit", "len": 1}
    entity = entity_of(
        attribute(0, "al", "alert", "bool", 0, 1, display_name="blob", position=position_of_bit),
        attribute(1, "mode", "status_readonly", "enum", 1, 1, enum=["off", "on"]),
        attribute(2, "blob", "status_readonly", "binary", 2, 3),
    )
    assert entity.decode(b"\4\1\1abc").values == {"al": True, "mode": "on", "blob": b"abc"}
    assert entity.decode(b"\4\1\5abc").values == {"al": True}
    # It is before the end, but the alert has its key.
    entity = entity_of(
        attribute(0, "blob", "status_readonly", "binary", 2, 3),
        attribute(1, "al", "alert", "bool", 0, 1, display_name="blob", position=position_of_bit),
        attribute(2, "mode", "status_readonly", "enum", 1, 1, enum=["off", "on"]),
    )
    assert entity.decode(b"\4\1\5abc").values == {"blob": b"abc", "al": True}


def test_integers_of_more_than_64_bits() -> None:
    scaling = {"min": 0, "max": 2**52 - 1, "ratio": 1000000, "addition": 0}
    entity = entity_of(attribute(0, "ticks", "status_writable", "uint64", 0, 8, uint_spec=scaling))
    ticks = 0x5F5E100000000 * 1000000
    assert ticks > 2**64
    assert entity.encode({"ticks": ticks}) == bytes.fromhex("0101 0005f5e100000000")
    packet = bytes.fromhex("04 0005f5e100000000")
    assert entity.decode(packet).values == {"ticks": ticks}
    frame = entity.to_frame([packet, b"\2"])
    assert str(frame["ticks"].dtype) == "float64"
    assert (frame["ticks"][0], frame["ticks"].isna()[1]) == (ticks, True)


def test_names_of_entities_are_texts_without_nul() -> None:
    product = morvix_protocol.load(EXAMPLES / "kettle.json")
    with pytest.raises(morvix_protocol.ConfigurationError, match="no entity has the name 'kettle.x00': it contains a"):
        product["kettle\0"]
    for wrong in (0, None, b"kettle"):
        with pytest.raises(TypeError, match="^the name of an entity is a str, not (int|NoneType|bytes)$"):
            product[wrong]


def test_bytes_beyond_a_field_are_refused() -> None:
    with pytest.raises(morvix_protocol.EncodeError, match="'label': 9 bytes are too many; expected at most 8"):
        example("gateway").encode({"label": b"123456789"})


def test_commands_beyond_an_integer_are_refused(kettle: Any) -> None:
    for command in (2**31, -(2**31) - 1, 2**80):
        message = f"command {command} is out of range; expected an integer from -2147483648 to 2147483647"
        with pytest.raises(morvix_protocol.EncodeError, match=message):
            kettle.encode({"power": True}, command=command)
        with pytest.raises(morvix_protocol.EncodeError, match=message):
            morvix_protocol.request(command)


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
