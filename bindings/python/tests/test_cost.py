"""What decoding costs beside construct, the usual library for binary formats in Python, in one run."""

from __future__ import annotations

import time
from typing import Any, Callable

import construct

NOTIFICATION = bytes.fromhex("04055a04640101")

# The kettle's payload: its bit groups are nested BitStructs.
KETTLE = construct.Struct(
    "command" / construct.Byte,
    "state"
    / construct.BitStruct(construct.Padding(5), "program" / construct.BitsInteger(2), "power" / construct.Flag),
    "target" / construct.ExprAdapter(construct.Byte, lambda raw, _: raw * 0.5 + 40, lambda value, _: value),
    "temperature" / construct.ExprAdapter(construct.Int16ub, lambda raw, _: raw * 0.1 - 20, lambda value, _: value),
    "alerts"
    / construct.BitStruct(construct.Padding(6), "lid_open" / construct.Flag, "low_water" / construct.Flag),
    "faults" / construct.BitStruct(construct.Padding(7), "sensor" / construct.Flag),
)


def best_seconds(work: Callable[[], Any], rounds: int) -> float:
    """The shortest of several runs, which the machine's other work has disturbed least."""
    seconds = []
    for _ in range(rounds):
        start = time.perf_counter()
        work()
        seconds.append(time.perf_counter() - start)
    return min(seconds)


def test_construct_sees_what_decode_sees(kettle: Any) -> None:
    parsed = KETTLE.parse(NOTIFICATION)
    values = kettle.decode(NOTIFICATION, items=False).values
    assert (parsed.state.power, parsed.state.program, parsed.target) == (True, values["program"], values["target"])
    assert round(parsed.temperature, 6) == values["temperature"]
    assert (parsed.alerts.lid_open, parsed.alerts.low_water) == (values["lid_open"], values["low_water"])
    assert parsed.faults.sensor == values["sensor"]


def test_decoding_beside_construct(kettle: Any) -> None:
    def parse() -> None:
        for _ in range(500):
            KETTLE.parse(NOTIFICATION)

    def decode() -> None:
        for _ in range(500):
            kettle.decode(NOTIFICATION)

    packets = [NOTIFICATION] * 100_000
    parse_seconds, decode_seconds = best_seconds(parse, 7) / 500, best_seconds(decode, 7) / 500
    frame_seconds = best_seconds(lambda: kettle.to_frame(packets), 5) / len(packets)
    for name, seconds, bar in (("decode", decode_seconds, 1 / 2), ("to_frame, a packet", frame_seconds, 1 / 20)):
        ratio = seconds / parse_seconds
        print(f"{name}: {seconds * 1e6:.2f} us, {ratio:.3f} of construct's parse ({parse_seconds * 1e6:.2f} us), "
              f"at most {bar}")
        assert ratio <= bar
