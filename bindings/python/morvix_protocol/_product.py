"""Products, entities and messages, on the C interface."""

from __future__ import annotations

import base64
import dataclasses
import functools
import itertools
import json
import math
import numbers
import operator
import os
import sys
from typing import (
    TYPE_CHECKING,
    Any,
    Callable,
    Dict,
    Iterable,
    List,
    Mapping,
    NamedTuple,
    Optional,
    Sequence,
    Tuple,
    Union,
)

from ._native import ffi, lib

if TYPE_CHECKING:
    import pandas

Buffer = Union[bytes, bytearray, memoryview]
Value = Union[bool, int, float, str, bytes]

_ABI = 1
if lib.morvix_abi() != _ABI:
    raise ImportError(f"the native part has interface {lib.morvix_abi()}; expected {_ABI}")


class ProtocolError(ValueError):
    """What is refused, and why: the base of all errors of this package."""


class ConfigurationError(ProtocolError):
    """A product configuration, or an entity of it, that cannot be used."""


class EncodeError(ProtocolError):
    """A value, command or sub-device that cannot be sent."""


class DecodeError(ProtocolError):
    """Bytes that are not a read response or notification."""


@dataclasses.dataclass(frozen=True)
class Place:
    """Bits of a payload, counted from the most significant bit of its first byte."""

    first_bit: int
    bits: int


@dataclasses.dataclass(frozen=True)
class Attribute:
    """One attribute of an entity, as its configuration describes it. What means nothing for it is None.

    name          the key of its value in `Entity.encode` and `Message.values`
    display_name  for people; the key of alerts and faults in documents
    description   for people
    id            as in the configuration
    group         "status_writable", "status_readonly", "alert" or "fault"
    type          "bool", "enum", "binary", "uint8", "uint16", "uint32" or "uint64"
    flag          of writable attributes: the bit in the flag bitmap of a write
    place         where it lies in a payload of all attributes
    write_place   where it lies in the payload of a write, if that is another place
    min, max      of numbers: the smallest and largest raw value
    ratio         of numbers: the value in user units is raw * ratio + addition; None when it is not finite
    addition      of numbers: see ratio
    items         of enums: the texts of their values 0, 1, ...
    """

    name: str
    display_name: str
    description: str
    id: int
    group: str
    type: str
    flag: Optional[int] = None
    place: Optional[Place] = None
    write_place: Optional[Place] = None
    min: Optional[int] = None
    max: Optional[int] = None
    ratio: Optional[float] = None
    addition: Optional[float] = None
    items: Optional[Tuple[str, ...]] = None

    @property
    def is_integral(self) -> bool:
        """Whether it is a number whose values in user units are whole."""
        scaling = (self.ratio, self.addition)
        return all(each is not None and each.is_integer() for each in scaling)

    @classmethod
    def _from_description(cls, description: Mapping[str, Any]) -> "Attribute":
        def place(member: str) -> Optional[Place]:
            given = description.get(member)
            return None if given is None else Place(given["firstBit"], given["bits"])

        def number(member: str) -> Optional[float]:
            given = description.get(member)
            return None if given is None else float(given)

        items = description.get("items")
        return cls(
            name=description["name"],
            display_name=description["displayName"],
            description=description["description"],
            id=description["id"],
            group=description["group"],
            type=description["type"],
            flag=description.get("flag"),
            place=place("place"),
            write_place=place("writePlace"),
            min=description.get("min"),
            max=description.get("max"),
            ratio=number("ratio"),
            addition=number("addition"),
            items=None if items is None else tuple(items),
        )


@dataclasses.dataclass(frozen=True)
class Dropped:
    """An element of a configuration's "attrs" that the protocol module drops.

    index   its place in "attrs", from 0
    member  the member for which it is dropped
    name    its name, if it has one
    """

    index: int
    member: str
    name: Optional[str] = None


class Active(NamedTuple):
    """An alert or fault that is active now: its display name and its value, which is never 0 (1 for bools)."""

    name: str
    value: int


@dataclasses.dataclass(frozen=True)
class Message:
    """A received packet, decoded.

    command   3 for a read response, 4 for a notification
    values    by attribute name, of all groups: bools are bool; enums the text of their item, or its index; binaries
              bytes; numbers in user units, int where ratio and addition are whole, otherwise float. Numbers out of
              their range are missing, and what decoding did not reach: it ends at an enum's index without an item, and
              gives nothing at all where the packet ends before a bool or binary.
    alerts    the alerts that are active
    faults    the faults that are active
    document  the decoded document of the protocol module, {entity: {key: {"type": ..., "value": ...}}}
    warnings  what the protocol module has to say about the packet
    """

    command: int
    values: Dict[str, Value]
    alerts: Tuple[Active, ...]
    faults: Tuple[Active, ...]
    warnings: Tuple[str, ...]
    _entity: Entity = dataclasses.field(repr=False, compare=False)
    _packet: bytes = dataclasses.field(repr=False, compare=False)

    @functools.cached_property
    def document(self) -> Dict[str, Any]:
        """The decoded document as the protocol module gives it; decoded when it is first asked for."""
        return self._entity._document(self._packet)


def _take(result: Any) -> bytes:
    """The bytes of a result, which is released."""
    data: bytes = ffi.buffer(result.data, result.size)[:] if result.data != ffi.NULL else b""
    lib.morvix_free(result.data)
    return data


def _take_message(message: Any) -> str:
    if message[0] == ffi.NULL:
        return ""
    text: str = ffi.string(message[0]).decode("utf-8")
    lib.morvix_free(message[0])
    return text


def _check(status: int, message: Any, error: type[ProtocolError]) -> str:
    """The warnings of a call that succeeded. Raises what belongs to one that did not."""
    if status == lib.MORVIX_OK:
        return _take_message(message) if message[0] != ffi.NULL else ""
    text = _take_message(message)
    if status == lib.MORVIX_NO_MEMORY:
        raise MemoryError(text)
    raise error(text)


def _bytes_of(data: Buffer) -> bytes:
    return data if type(data) is bytes else memoryview(data).tobytes()


def _sub_device(sub_device: Optional[int]) -> Any:
    """The pointer to a sub-device id; ids may be given signed or unsigned."""
    if sub_device is None:
        return ffi.NULL
    sub_device = operator.index(sub_device)
    if not -(2**31) <= sub_device < 2**32:
        raise EncodeError(f"sub-device {sub_device} is out of range; expected an integer from {-2**31} to {2**32 - 1}")
    return ffi.new("int32_t *", sub_device - 2**32 if sub_device >= 2**31 else sub_device)


def _real(number: Any) -> float:
    """The number as a float; the largest one where it is beyond all."""
    try:
        return float(number)
    except OverflowError:
        return math.copysign(sys.float_info.max, 1 if number > 0 else -1)


def _bytes_in(place: Place) -> Tuple[int, int]:
    """Where a place begins and ends in a packet, in bytes."""
    return 1 + place.first_bit // 8, 1 + (place.first_bit + place.bits + 7) // 8


def _command(command: int) -> int:
    command = operator.index(command)
    if not -(2**31) <= command < 2**31:
        raise EncodeError(f"command {command} is out of range; expected an integer from {-2**31} to {2**31 - 1}")
    return command


def version() -> str:
    """The version of the native part, "major.minor.patch"."""
    text: str = ffi.string(lib.morvix_version()).decode("ascii")
    return text


def request(command: int, sub_device: Optional[int] = None) -> bytes:
    """The packet of a request without values.

    `command` is 2 (read), 11 (let a sub-device join) or 13 (list the sub-devices), each without a sub-device; 8 (read a
    sub-device) or 12 (remove a sub-device), each with its id of 32 bits.

    Raises EncodeError for anything else.
    """
    packet = ffi.new("morvix_bytes *")
    message = ffi.new("char **")
    status = lib.morvix_request(_command(command), _sub_device(sub_device), packet, message)
    _check(status, message, EncodeError)
    return _take(packet)


def load(path: Union[str, "os.PathLike[str]"]) -> Product:
    """Reads a product configuration from a file.

    Raises OSError when the file cannot be read and ConfigurationError when it is not a configuration.
    """
    with open(path, "rb") as file:
        return Product(file.read())


def loads(text: Union[str, Buffer]) -> Product:
    """Reads a product configuration from its text, or from its bytes in UTF-8.

    Raises ConfigurationError when it is not a configuration.
    """
    if not isinstance(text, str):
        return Product(_bytes_of(text))
    try:
        return Product(text.encode("utf-8"))
    except UnicodeEncodeError as error:
        raise ConfigurationError(f"the configuration is not UTF-8: {error.reason}") from error


def from_dict(configuration: Mapping[str, Any]) -> Product:
    """Takes a product configuration as a dictionary, {"entities": [...], ...}.

    Raises ConfigurationError when it is not a configuration, or holds what JSON cannot express.
    """
    try:
        return Product(json.dumps(configuration, allow_nan=False).encode("utf-8"))
    except (TypeError, ValueError, RecursionError) as error:
        if isinstance(error, ConfigurationError):
            raise
        raise ConfigurationError(f"the configuration cannot be written as JSON: {error}") from error


class Product:
    """A product configuration. Made by `load`, `loads` and `from_dict`."""

    def __init__(self, configuration: bytes) -> None:
        """Takes the text of a configuration in UTF-8. Raises ConfigurationError when it is not one."""
        self._configuration = configuration
        self._opened: Dict[str, Entity] = {}
        listed = ffi.new("morvix_bytes *")
        message = ffi.new("char **")
        status = lib.morvix_entities(configuration, len(configuration), listed, message)
        self._warnings = tuple(_check(status, message, ConfigurationError).splitlines())
        self._names = tuple(entity["name"] for entity in json.loads(_take(listed)))

    def __repr__(self) -> str:
        return f"<Product with the entities {', '.join(self._names) or 'none'}>"

    def __reduce__(self) -> Tuple[Any, ...]:
        return (Product, (self._configuration,))

    @property
    def warnings(self) -> Tuple[str, ...]:
        """What is wrong with the entities that `entities` leaves out, one text each."""
        return self._warnings

    @property
    def entities(self) -> Tuple[Entity, ...]:
        """The entities in the order of the configuration, without those that `warnings` names.

        Raises ConfigurationError when two have the same name, or the attributes of one cannot be used.
        """
        return tuple(self[name] for name in self._names)

    def __getitem__(self, name: str) -> Entity:
        """The entity of this name. Raises ConfigurationError when there is none, two, or it cannot be used."""
        if not isinstance(name, str):
            raise TypeError(f"the name of an entity is a str, not {type(name).__name__}")
        if name not in self._opened:
            self._opened[name] = Entity(self, name)
        return self._opened[name]

    def entity(self) -> Entity:
        """The only entity. Raises ConfigurationError when there are several, or it cannot be used."""
        return self[self._names[0]] if len(self._names) == 1 else Entity(self, None)


class Entity:
    """One entity of a product: encodes writes and decodes what its devices send. Made by `Product`."""

    def __init__(self, product: Product, name: Optional[str]) -> None:
        """Opens an entity by its name, or the only one. Raises ConfigurationError when that is not possible."""
        configuration = product._configuration
        if name is not None and "\0" in name:
            raise ConfigurationError(f"no entity has the name {name!r}: it contains a NUL")
        try:
            wanted = ffi.NULL if name is None else ffi.new("char[]", name.encode("utf-8"))
        except UnicodeEncodeError as error:
            raise ConfigurationError(f"the name of an entity is not UTF-8: {error.reason}") from error
        opened = ffi.new("morvix_entity **")
        message = ffi.new("char **")
        status = lib.morvix_entity_open(configuration, len(configuration), wanted, opened, message)
        warnings = _check(status, message, ConfigurationError)
        self._product = product
        self._entity = ffi.gc(opened[0], lib.morvix_entity_close)
        self._warnings = tuple(warnings.splitlines())
        described = ffi.new("morvix_bytes *")
        _check(lib.morvix_entity_describe(self._entity, described), ffi.new("char **"), ConfigurationError)
        description = json.loads(_take(described))
        self._name: str = description["name"]
        self._display_name: str = description["displayName"]
        self._id: int = description["id"]
        self._payload_bytes: int = description["payloadBytes"]
        self._write_bytes: int = description["writeBytes"]
        self._attributes = tuple(Attribute._from_description(each) for each in description["attributes"])
        self._dropped = tuple(
            Dropped(each["index"], each["member"], each.get("name")) for each in description["dropped"]
        )
        self._writable = {each.name: each for each in self._attributes if each.flag is not None}
        self._converters = [
            [(each.name, _converter(each, items)) for each in self._attributes] for items in (False, True)
        ]
        self._have_places = all(each.place is not None for each in self._attributes)
        # Where an enum ends in a packet, and where a binary begins and ends.
        places = [(i, each.type, _bytes_in(each.place)) for i, each in enumerate(self._attributes) if each.place]
        self._enums = [(i, end) for i, kind, (_, end) in places if kind == "enum"]
        self._binaries = {i: place for i, kind, place in places if kind == "binary"}

    def __repr__(self) -> str:
        return f"<Entity {self._name} with {len(self._attributes)} attributes>"

    def __reduce__(self) -> Tuple[Any, ...]:
        return (_entity_of, (self._product, self._name))

    @property
    def name(self) -> str:
        """The name by which documents and `Product` know it."""
        return self._name

    @property
    def display_name(self) -> str:
        """The name for people."""
        return self._display_name

    @property
    def id(self) -> int:
        """The id in the configuration."""
        return self._id

    @property
    def payload_bytes(self) -> int:
        """The bytes of a payload that holds all attributes."""
        return self._payload_bytes

    @property
    def write_bytes(self) -> int:
        """The bytes of the payload of a write."""
        return self._write_bytes

    @property
    def attributes(self) -> Tuple[Attribute, ...]:
        """The attributes in the order of the configuration."""
        return self._attributes

    @property
    def dropped(self) -> Tuple[Dropped, ...]:
        """The elements of "attrs" that the protocol module drops, because a member of them is invalid."""
        return self._dropped

    @property
    def warnings(self) -> Tuple[str, ...]:
        """What the protocol module has to say about the entity."""
        return self._warnings

    def encode(self, values: Mapping[str, object], command: int = 1, sub_device: Optional[int] = None) -> bytes:
        """The packet that writes `values`, which are by attribute name; attributes without a value are not written.

        Bools take a bool or int; enums the text of an item, or an int, its index; numbers an int or float in user
        units; binaries bytes, at most as many as the attribute has. numpy's scalars are taken for Python's.

        `command` is 1, or 7 for a write to a sub-device; `sub_device` is an id of 32 bits to insert.

        Raises EncodeError, which names the attribute, the value and what is expected, when a value is refused, an
        attribute is unknown or not writable, or there is nothing to write.
        """
        if not hasattr(values, "items"):
            raise TypeError(f"values are a mapping by attribute name, not {type(values).__name__}")
        sent = {self._name: {name: self._plain(name, value) for name, value in values.items()}}
        try:
            text = json.dumps(sent, allow_nan=False).encode("ascii")
        except (TypeError, ValueError, RecursionError) as error:
            raise EncodeError(f"a value cannot be written as JSON: {error}") from error
        packet = ffi.new("morvix_bytes *")
        message = ffi.new("char **")
        id_pointer = _sub_device(sub_device)
        status = lib.morvix_encode(self._entity, text, len(text), _command(command), id_pointer, packet, message)
        _check(status, message, EncodeError)
        return _take(packet)

    def _plain(self, name: str, value: object) -> object:
        """A value as the value document holds it."""
        attribute = self._writable.get(name)
        if attribute is None:
            return None  # the C interface says what is wrong with the name
        if getattr(value, "ndim", None) == 0 and hasattr(value, "item"):
            value = value.item()  # of numpy
        if isinstance(value, (bytes, bytearray, memoryview)):
            return self._base64(attribute, _bytes_of(value))
        if isinstance(value, str):
            return self._index(attribute, value)
        if isinstance(value, bool) or value is None:
            return value
        if isinstance(value, numbers.Integral):
            number = int(value)
            if number.bit_length() <= 64:
                return number
            # JSON takes no more: what is beyond is refused as the largest integer or real number is.
            if attribute.min is None:
                return 2**64 - 1 if number > 0 else -(2**63)
            return _real(number)
        if isinstance(value, numbers.Real):
            real = _real(value)
            if not math.isfinite(real):
                raise EncodeError(f"'{name}': {json.dumps(real)} is not a finite number")
            return real
        if isinstance(value, (list, tuple, dict)):
            return [] if not isinstance(value, dict) else {}
        raise EncodeError(f"'{name}': a value of type {type(value).__name__} is not taken; {_taken_by(attribute)}")

    @staticmethod
    def _base64(attribute: Attribute, data: bytes) -> str:
        if attribute.type != "binary":
            raise EncodeError(f"'{attribute.name}': bytes are not taken; {_taken_by(attribute)}")
        place = attribute.write_place or attribute.place
        if place is not None and len(data) > place.bits // 8:
            raise EncodeError(f"'{attribute.name}': {len(data)} bytes are too many; expected at most {place.bits // 8}")
        return base64.b64encode(data).decode("ascii")

    @staticmethod
    def _index(attribute: Attribute, text: str) -> int:
        if attribute.items is None:
            raise EncodeError(f"'{attribute.name}': text is not taken; {_taken_by(attribute)}")
        if text not in attribute.items:
            items = ", ".join(attribute.items) or "none"
            raise EncodeError(f"'{attribute.name}': {text!r} is not an item; expected one of: {items}")
        return attribute.items.index(text)

    def decode(self, packet: Buffer, items: bool = True) -> Message:
        """Decodes a received packet: the command byte and the payload.

        With `items` False, enums are the index of their item instead of its text.

        Raises DecodeError when it is not a read response (3) or notification (4) of 2 to 16385 bytes.
        """
        data = _bytes_of(packet)
        _, active, warnings = self._receive(data)
        return Message(
            command=data[0],
            values=self._values(data, items),
            alerts=active[0],
            faults=active[1],
            warnings=tuple(warnings.splitlines()),
            _entity=self,
            _packet=data,
        )

    def _document(self, data: bytes) -> Dict[str, Any]:
        """The decoded document of a packet."""
        result = ffi.new("morvix_bytes *")
        message = ffi.new("char **")
        _check(lib.morvix_decode(self._entity, data, len(data), result, message), message, DecodeError)
        document: Dict[str, Any] = json.loads(_take(result))
        return document

    def _values(self, data: bytes, items: bool) -> Dict[str, Value]:
        """The values of a packet that is not refused."""
        row = ffi.new("double[]", len(self._attributes))
        offsets = ffi.new("size_t[]", (0, len(data)))
        status = lib.morvix_receive_table(self._entity, data, offsets, 1, row, ffi.new("uint8_t *"))
        _check(status, ffi.new("char **"), DecodeError)
        binaries = self._binaries_of(data, row) if self._binaries else {}
        values: Dict[str, Value] = {}
        for i, ((name, convert), number) in enumerate(zip(self._converters[items], row)):
            if number == number:  # not NaN
                values[name] = convert(number)
            elif i in binaries:
                values[name] = binaries[i]
        return values

    def _binaries_of(self, data: bytes, row: Sequence[float]) -> Dict[int, bytes]:
        """The values of the binaries of a packet that is not refused, by the index of the attribute. `row` are the
        numbers of the other attributes."""
        # Decoding ends at an enum's index without an item, and removes the entity for a bool or binary that the packet
        # does not hold.
        last = next((i for i, end in self._enums if row[i] != row[i] and end <= len(data)), len(row))
        is_whole = self._have_places and len(data) > self._payload_bytes
        if not is_whole and self._name not in self._document(data):
            return {}
        return {i: data[begin:end] for i, (begin, end) in self._binaries.items() if i < last and end <= len(data)}

    def _receive(self, data: bytes) -> Tuple[bytes, Tuple[Tuple[Active, ...], Tuple[Active, ...]], str]:
        """The application's document, the active alerts and faults, and the warnings of a packet."""
        document = ffi.new("morvix_bytes *")
        active = ffi.new("morvix_bytes *")
        message = ffi.new("char **")
        status = lib.morvix_receive(self._entity, data, len(data), document, active, message)
        warnings = _check(status, message, DecodeError)
        text = _take(document)
        lists = json.loads(_take(active))
        alerts, faults = (tuple([Active(**each) for each in lists[name]]) for name in ("alerts", "faults"))
        return text, (alerts, faults), warnings

    def receive(self, packet: Buffer) -> Tuple[str, List[Active], List[Active]]:
        """What an application is given of a received packet, as the protocol module gives it: the text of the
        application's document, the active alerts, the active faults.

        Raises DecodeError when it is not a read response (3) or notification (4) of 2 to 16385 bytes.
        """
        text, (alerts, faults), _ = self._receive(_bytes_of(packet))
        return text.decode("utf-8"), list(alerts), list(faults)

    def to_frame(
        self, packets: Iterable[Buffer], times: Optional[Sequence[Any]] = None, items: bool = True
    ) -> pandas.DataFrame:
        """A pandas DataFrame of many received packets: a row a packet, a column an attribute, in their order.

        Bools are of dtype "boolean"; enums categories of their items, or with `items` False "Int64", their index;
        numbers in user units "Int64" where ratio and addition are whole and all values within 64 bits, otherwise
        "float64"; binaries bytes. Where a packet has no value there is NA, in all columns of a packet that is refused;
        `decode` tells why. `times`, one for each packet, become the index. Other threads run meanwhile.

        Raises ValueError when there are not as many times as packets.
        """
        import pandas

        datas = [_bytes_of(packet) for packet in packets]
        table, refused = self._table(datas)
        binaries = self._binary_columns(datas, table, refused)
        columns = [
            pandas.Series(binaries[i], dtype=object) if i in binaries else _column(pandas, attribute, table[i], items)
            for i, attribute in enumerate(self._attributes)
        ]
        frame = pandas.DataFrame(dict(enumerate(columns)), index=range(len(datas)))
        frame.columns = pandas.Index([attribute.name for attribute in self._attributes], dtype=object)
        if times is not None:
            index = pandas.Index(times)
            if len(index) != len(datas):
                raise ValueError(f"{len(index)} times for {len(datas)} packets")
            frame.index = index
        return frame

    def _table(self, datas: List[bytes]) -> Tuple[Any, Any]:
        """The numbers of all packets, a row an attribute, and which packets are refused."""
        import numpy

        table = numpy.empty((len(self._attributes), len(datas)), dtype=numpy.float64)
        refused = numpy.empty(len(datas), dtype=numpy.uint8)
        offsets = ffi.new("size_t[]", list(itertools.accumulate(map(len, datas), initial=0)))
        status = lib.morvix_receive_table(
            self._entity,
            b"".join(datas),
            offsets,
            len(datas),
            ffi.cast("double *", table.ctypes.data),
            ffi.cast("uint8_t *", refused.ctypes.data),
        )
        _check(status, ffi.new("char **"), DecodeError)
        return table, refused

    def _binary_columns(self, datas: List[bytes], table: Any, refused: Any) -> Dict[int, List[Optional[bytes]]]:
        """The values of the binaries, which are not in the table of numbers, by the index of the attribute."""
        columns: Dict[int, List[Optional[bytes]]] = {
            i: [None] * len(datas) for i, attribute in enumerate(self._attributes) if attribute.type == "binary"
        }
        if not columns:
            return {}
        for packet, (data, row) in enumerate(zip(datas, table.T)):
            if not refused[packet]:
                for i, value in self._binaries_of(data, row).items():
                    columns[i][packet] = value
        return columns


def _taken_by(attribute: Attribute) -> str:
    """What a writable attribute takes, for messages."""
    kinds = {"bool": "a bool or int", "enum": "the text of an item, or its index as an int", "binary": "bytes"}
    return f"it is of type {attribute.type}; expected {kinds.get(attribute.type, 'an int or float')}"


def _converter(attribute: Attribute, items: bool) -> Callable[[float], Value]:
    """What makes a value of a number in the table of the C interface."""
    if attribute.type == "bool":
        return bool
    if attribute.type == "enum" and items and attribute.items is not None:
        known = attribute.items
        return lambda index: known[int(index)]
    if attribute.type == "enum" or attribute.is_integral:
        return _whole
    return float


def _whole(number: float) -> Value:
    """The number as an int; a scaling can make it infinite."""
    return int(number) if math.isfinite(number) else number


def _entity_of(product: Product, name: str) -> Entity:
    return product[name]


def _column(pandas: Any, attribute: Attribute, numbers_of: Any, items: bool) -> Any:
    """The column of an attribute that is not a binary."""
    column = pandas.Series(numbers_of)
    if attribute.type == "bool":
        return column.astype("boolean")
    if attribute.type == "enum":
        if not items:
            return column.astype("Int64")
        known = attribute.items or ()
        categories = list(dict.fromkeys(known))  # two items can be the same
        codes = pandas.Series([categories.index(item) for item in known] + [-1], dtype="int64").to_numpy()
        indexes = column.fillna(-1).astype("int64").to_numpy()
        return pandas.Series(pandas.Categorical.from_codes(codes[indexes], categories=categories))
    return column.astype("Int64") if attribute.is_integral and _fits_int64(attribute) else column


def _fits_int64(number: Attribute) -> bool:
    """Whether all values in user units are within 64 bits."""
    scaling = (number.min, number.max, number.ratio, number.addition)
    least, most, ratio, addition = (0 if each is None else each for each in scaling)
    return all(abs(limit * ratio + addition) < 2**63 for limit in (least, most))
