"""The version 4.0 data-point protocol of Wi-Fi appliances.

A product configuration lists entities; each entity has attributes. `load` reads a configuration, and an `Entity`
encodes values into packets and decodes packets into values:

    product = morvix_protocol.load("kettle.json")
    kettle = product["kettle"]
    packet = kettle.encode({"power": True, "program": "keep_warm", "target": 85})
    message = kettle.decode(received)
    message.values["target"]
    kettle.to_frame(many_packets)

All values are in user units, as the configuration scales them. Products and entities never change; any number of
threads may use them at once, and they can be pickled. Everything that is refused raises a `ProtocolError` whose text
names the attribute, the value and what is expected.
"""

from ._product import (
    Active,
    Attribute,
    ConfigurationError,
    DecodeError,
    Dropped,
    EncodeError,
    Entity,
    Message,
    Place,
    Product,
    ProtocolError,
    from_dict,
    load,
    loads,
    request,
)
from ._product import version as _version

__version__ = _version()

__all__ = [
    "Active",
    "Attribute",
    "ConfigurationError",
    "DecodeError",
    "Dropped",
    "EncodeError",
    "Entity",
    "Message",
    "Place",
    "Product",
    "ProtocolError",
    "from_dict",
    "load",
    "loads",
    "request",
]
