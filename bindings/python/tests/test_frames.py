"""Tables of many packets."""

from __future__ import annotations

import datetime
import json
import math
import sys
import threading
import time
from typing import Any

import morvix_protocol
import pandas
import pytest
from conftest import EXAMPLES

NOTIFICATION = bytes.fromhex("04055a04640101")


def test_rows_are_packets_and_columns_attributes(kettle: Any) -> None:
    frame = kettle.to_frame([NOTIFICATION, b"", bytes.fromhex("03005affff0200")])
    assert list(frame.columns) == [each.name for each in kettle.attributes]
    assert frame.dtypes.astype(str).to_dict() == {
        "power": "boolean",
        "program": "category",
        "target": "float64",
        "temperature": "float64",
        "low_water": "boolean",
        "lid_open": "boolean",
        "sensor": "boolean",
    }
    assert frame.isna().values.tolist() == [[False] * 7, [True] * 7, [False] * 3 + [True] + [False] * 3]
    assert frame["program"].tolist()[::2] == ["keep_warm", "boil"]
    assert frame["temperature"][0] == 92.4
    assert frame["lid_open"].tolist()[::2] == [False, True]


def test_enums_can_be_indexes(kettle: Any) -> None:
    frame = kettle.to_frame([NOTIFICATION, b""], items=False)
    assert str(frame["program"].dtype) == "Int64"
    assert frame["program"][0] == 2 and frame["program"].isna()[1]


def test_items_can_be_the_same() -> None:
    text = (EXAMPLES / "kettle.json").read_text(encoding="utf-8").replace('"green_tea"', '"boil"')
    kettle = morvix_protocol.loads(text)["kettle"]
    packets = [bytes.fromhex(f"040{2 * index}5a04640000") for index in (0, 1, 2)]
    assert kettle.to_frame(packets + [b""])["program"].tolist()[:3] == ["boil", "boil", "keep_warm"]
    assert [kettle.decode(packet).values["program"] for packet in packets] == ["boil", "boil", "keep_warm"]
    assert kettle.to_frame(packets + [b""])["program"].isna().tolist() == [False, False, False, True]


def test_infinite_numbers_are_floats() -> None:
    configuration = json.loads((EXAMPLES / "kettle.json").read_text(encoding="utf-8"))
    attribute = configuration["entities"][0]["attrs"][2]
    attribute["uint_spec"] = {"min": 0, "max": 2**51, "ratio": 1e300, "addition": 0}
    attribute.update({"data_type": "uint64", "position": {"byte_offset": 0, "bit_offset": 0, "unit": "byte", "len": 8}})
    configuration["entities"][0]["attrs"] = [attribute]
    kettle = morvix_protocol.loads(json.dumps(configuration))["kettle"]
    packet = bytes.fromhex("040008000000000000")
    assert kettle.decode(packet).values == {"target": math.inf}
    assert kettle.to_frame([packet])["target"][0] == math.inf


def test_whole_numbers_and_binaries() -> None:
    gateway = morvix_protocol.load(EXAMPLES / "gateway.json")["gateway"]
    packet = bytes.fromhex((EXAMPLES / "gateway.notify.hex").read_text(encoding="utf-8"))
    frame = gateway.to_frame([packet, b"\1", packet])
    assert str(frame["signal"].dtype) == "Int64" and frame["signal"][2] == -67
    assert frame["label"].tolist() == [b"Attic\0\0\0", None, b"Attic\0\0\0"]


def test_frames_hold_what_decode_gives(kettle: Any) -> None:
    packets = [bytes([4, i % 6, i % 121, i % 7, (i * 37) % 256, i % 4, i % 2]) for i in range(500)]
    frame = kettle.to_frame(packets)
    for i, packet in enumerate(packets):
        values = kettle.decode(packet).values
        row = frame.iloc[i]
        assert {name: value for name, value in row.items() if not pandas.isna(value)} == values


def test_frames_hold_the_binaries_that_decode_gives() -> None:
    gateway = morvix_protocol.load(EXAMPLES / "gateway.json")["gateway"]
    whole = bytes.fromhex((EXAMPLES / "gateway.notify.hex").read_text(encoding="utf-8"))
    names = [each.name for each in gateway.attributes if each.type == "binary"]
    packets = [whole[:size] for size in range(len(whole) + 1)]
    for size in range(1, len(whole)):
        packets.append(whole[:size] + b"\xff" + whole[size + 1 :])
    frame = gateway.to_frame(packets)[names]
    for i, packet in enumerate(packets):
        values = gateway.decode(packet).values if len(packet) > 1 else {}
        assert frame.iloc[i].tolist() == [values.get(name) for name in names]
    assert frame.iloc[len(whole)].tolist() == [b"Attic\0\0\0", bytes.fromhex("001a2b3c4d5e6f70")]


def test_times_are_the_index(kettle: Any) -> None:
    times = [datetime.datetime(2024, 5, 1, 12, minute) for minute in (0, 1)]
    frame = kettle.to_frame([NOTIFICATION] * 2, times)
    assert isinstance(frame.index, pandas.DatetimeIndex)
    assert list(frame.index) == times
    with pytest.raises(ValueError, match="1 times for 2 packets"):
        kettle.to_frame([NOTIFICATION] * 2, times[:1])


def test_no_packets_make_an_empty_frame(kettle: Any) -> None:
    frame = kettle.to_frame([])
    assert frame.shape == (0, 7)
    assert str(frame["power"].dtype) == "boolean"


# A thread that waits for the interpreter's lock gets it only when the one at work releases it; without an interval at
# which that one is asked to, it has to do so by itself.
def test_other_threads_run_during_a_batch(kettle: Any) -> None:
    packets = b"".join([NOTIFICATION] * 200_000)
    ffi, lib = morvix_protocol._product.ffi, morvix_protocol._product.lib
    offsets = ffi.new("size_t[]", list(range(0, len(packets) + 1, 7)))
    values = ffi.new("double[]", 7 * 200_000)
    refused = ffi.new("uint8_t[]", 200_000)
    started, ended = threading.Event(), threading.Event()

    def work() -> None:
        started.set()
        lib.morvix_receive_table(kettle._entity, packets, offsets, 200_000, values, refused)
        ended.set()

    interval = sys.getswitchinterval()
    sys.setswitchinterval(1000)
    try:
        thread = threading.Thread(target=work)
        thread.start()
        started.wait()
        turns = 0
        while not ended.is_set():
            time.sleep(0)
            turns += 1
        thread.join()
    finally:
        sys.setswitchinterval(interval)
    assert turns > 10
