"""The example that decodes a folder of captures with Dask's distributed scheduler."""

from __future__ import annotations

import base64
import contextlib
import pathlib
import socket
import subprocess
import sys
from typing import Any, Iterator

import morvix_protocol
import pandas
from conftest import EXAMPLES

PROGRAM = EXAMPLES / "capture_folder.py"


def write_captures(folder: pathlib.Path) -> None:
    """Five captures of 200 packets each, and one that is empty; the fourth has lines that are no packet of a kettle."""
    folder.mkdir()
    for capture in range(5):
        day = f"2024-05-0{capture + 1}"
        lines = [f"{day}T00:{i // 60:02}:{i % 60:02}Z 04055a{i:04x}0{i % 4}0{i % 2}" for i in range(200)]
        if capture == 3:
            lines[7] = "2024-05-04T00:00:07Z 0107055a"
            lines[8] = "2024-05-04T00:00:08Z 04055"
            lines[9] = "2024-05-04T00:00:09Z"
            lines[10] = "2024-05-04T00:00:10Z 04055a"
            lines[11] = "2024-05-04T00:00:11Z 04075a00640000"
            lines[12] = "noon 04015a00640000"
            lines.insert(13, "")
        (folder / "empty.txt").write_text("", encoding="utf-8")
        (folder / f"capture{capture}.txt").write_text("\n".join(lines) + "\n", encoding="utf-8")


def run(*arguments: Any) -> str:
    command = [sys.executable, str(PROGRAM), *map(str, arguments)]
    done = subprocess.run(command, check=True, capture_output=True, text=True, timeout=120)
    assert "Traceback" not in done.stderr
    return done.stdout


def refusal(*arguments: Any) -> str:
    """What the program says at last, after its usage, when it cannot do its work."""
    command = [sys.executable, str(PROGRAM), *map(str, arguments)]
    done = subprocess.run(command, capture_output=True, text=True, timeout=120)
    assert done.returncode == 2
    assert "Traceback" not in done.stderr
    return done.stderr.splitlines()[-1].partition("error: ")[2]


def test_two_workers_make_the_table_of_one_process(tmp_path: Any) -> None:
    captures = tmp_path / "captures"
    write_captures(captures)
    alone, together = tmp_path / "alone.csv", tmp_path / "together.csv"
    assert run(EXAMPLES / "kettle.json", captures, alone) == "1000 lines, 6 errors\n"
    assert run(EXAMPLES / "kettle.json", captures, together, "--processes", 2) == "1000 lines, 6 errors\n"
    assert together.read_bytes() == alone.read_bytes()

    table = pandas.read_csv(alone)
    assert list(table.columns[:4]) == ["file", "line", "time", "error"]
    errors = table[table["error"].notna()]
    assert errors[["file", "line", "error"]].values.tolist() == [
        [
            "capture3.txt",
            8,
            "command 1 is not received; expected a read response (3) or notification (4)",
        ],
        ["capture3.txt", 9, "'04055' is not a packet in hexadecimal digits"],
        ["capture3.txt", 10, "the packet is empty"],
        ["capture3.txt", 11, "Decode value is invalid."],
        ["capture3.txt", 12, "Invalid enum value: 3, range: 0-3"],
        ["capture3.txt", 13, "'noon' is not a timestamp"],
    ]
    assert errors["power"].notna().tolist() == [False, False, False, False, True, True]
    assert errors["temperature"].notna().tolist() == [False, False, False, False, False, True]
    assert errors["time"].notna().tolist() == [True, True, True, True, True, False]
    # The blank line has no row.
    assert table.loc[table["file"] == "capture3.txt", "line"].tolist() == [*range(1, 14), *range(15, 202)]
    # 0 * 0.1 - 20 to 199 * 0.1 - 20
    assert (table["temperature"].min(), table["temperature"].max()) == (-20, -0.1)


def dask(*arguments: Any, folder: pathlib.Path) -> subprocess.Popen[bytes]:
    """A process of Dask, started as docs/many-machines.md says."""
    command = [sys.executable, "-m", "dask", *map(str, arguments), "--no-dashboard"]
    with open(folder / f"{arguments[0]}.log", "wb") as log:
        return subprocess.Popen(command, cwd=folder, stdout=log, stderr=log)


@contextlib.contextmanager
def ending(process: subprocess.Popen[bytes]) -> Iterator[None]:
    """Ends a process at last."""
    try:
        yield
    finally:
        process.terminate()
        process.wait(timeout=60)


def test_a_worker_of_a_running_scheduler_makes_the_same_table(tmp_path: Any) -> None:
    captures = tmp_path / "captures"
    write_captures(captures)
    alone, together = tmp_path / "alone.csv", tmp_path / "together.csv"
    run(EXAMPLES / "kettle.json", captures, alone)
    with socket.create_server(("127.0.0.1", 0)) as server:
        port = server.getsockname()[1]
    address = f"tcp://127.0.0.1:{port}"
    with contextlib.ExitStack() as stack:
        stack.enter_context(ending(dask("scheduler", "--host", "127.0.0.1", "--port", port, folder=tmp_path)))
        stack.enter_context(ending(dask("worker", address, "--no-nanny", folder=tmp_path)))
        printed = run(EXAMPLES / "kettle.json", captures, together, "--scheduler", address)
    assert printed == "1000 lines, 6 errors\n"
    assert together.read_bytes() == alone.read_bytes()


def test_binaries_are_base64_text(tmp_path: Any) -> None:
    product = EXAMPLES / "power_meter.json"
    entity = morvix_protocol.load(product).entity()
    packet = bytes.fromhex((EXAMPLES / "power_meter.notify.hex").read_text(encoding="utf-8"))
    captures, made = tmp_path / "captures", tmp_path / "table.csv"
    captures.mkdir()
    lines = [f"2024-05-01T00:00:00Z {packet.hex()}", "2024-05-01T00:00:01Z 0400"]
    (captures / "one.txt").write_text("\n".join(lines) + "\n", encoding="utf-8")
    assert run(product, captures, made) == "2 lines, 1 errors\n"
    table = pandas.read_csv(made)
    binaries = [each for each in entity.attributes if each.type == "binary"]
    assert len(binaries) > 1
    for each in binaries:
        assert each.place is not None
        begin = 1 + each.place.first_bit // 8
        whole, of_short = table[each.name]
        assert base64.b64decode(whole, validate=True) == packet[begin : begin + each.place.bits // 8]
        assert pandas.isna(of_short)


def test_an_entity_can_be_named(tmp_path: Any) -> None:
    captures, table = tmp_path / "captures", tmp_path / "table.csv"
    captures.mkdir()
    packet = (EXAMPLES / "gateway.notify.hex").read_text(encoding="utf-8").strip()
    (captures / "one.txt").write_text(f"2024-05-01T00:00:00Z {packet}\n", encoding="utf-8")
    assert run(EXAMPLES / "gateway.json", captures, table, "--entity", "gateway") == "1 lines, 0 errors\n"
    assert pandas.read_csv(table)["signal"].tolist() == [-67]
    expected = "the configuration has 2 entities; name one of: 'gateway', 'thermostat'"
    assert refusal(EXAMPLES / "gateway.json", captures, table) == expected


def test_what_cannot_be_used_is_told_in_a_line(tmp_path: Any) -> None:
    kettle, captures, table = EXAMPLES / "kettle.json", tmp_path / "captures", tmp_path / "table.csv"
    write_captures(captures)
    assert refusal(kettle, captures, table, "--processes", 0) == "--processes: expected 1 or more"
    expected = "no entity has the name 'pot'; expected one of: 'kettle'"
    assert refusal(kettle, captures, table, "--entity", "pot") == expected
    assert refusal(tmp_path / "none.json", captures, table).startswith("[Errno 2] No such file or directory")
    assert not table.exists()


def test_a_capture_is_read_whatever_its_text(tmp_path: Any) -> None:
    captures, made = tmp_path / "captures", tmp_path / "table.csv"
    captures.mkdir()
    packet = b"04 05 5a 04 64 01 01"
    lines = [
        b"\xef\xbb\xbf2024-05-01T00:00:00Z " + packet,
        b"2024-05-01T00:00:01Z\t" + packet + b"  ",
        b"2024-05-01T00:00:02Z \xff",
    ]
    (captures / "one.txt").write_bytes(b"\r\n".join(lines))
    assert run(EXAMPLES / "kettle.json", captures, made) == "3 lines, 1 errors\n"
    table = pandas.read_csv(made)
    assert table["target"].tolist()[:2] == [85, 85]
    assert table["time"].notna().all()
    assert table["error"].tolist()[2] == "'\ufffd' is not a packet in hexadecimal digits"
