#!/usr/bin/env python3
"""Decodes a folder of captures on many machines, with Dask's distributed scheduler, into one table.

    capture_folder.py CONFIGURATION FOLDER TABLE.csv [--entity NAME] [--scheduler ADDRESS | --processes N]

Each *.txt file of the folder is a capture: lines of a timestamp and a packet in hexadecimal digits. A file is decoded
as a whole, by whichever worker is free; workers need the package morvix-protocol and access to the same folder. The
table has the columns file, line, time and error, then one for each attribute. A line that cannot be decoded keeps its
row, with its error; the values of a packet that ends early stay as well. Binaries are base64 text. Blank lines are
passed over.

--entity names the entity whose packets these are, where the configuration has several.

--scheduler names a running scheduler; --processes starts that many workers on this machine; without either, this
process does the work.
"""

import argparse
import base64
import pathlib
from typing import Optional

import morvix_protocol
import pandas


def open_entity(configuration: bytes, name: Optional[str]) -> morvix_protocol.Entity:
    """The entity of this name or the only one."""
    product = morvix_protocol.loads(configuration)
    return product.entity() if name is None else product[name]


def decode_capture(configuration: bytes, path: str, name: Optional[str] = None) -> pandas.DataFrame:
    """The table of one capture, of the entity of this name or the only one."""
    entity = open_entity(configuration, name)
    places, times, packets, errors = [], [], [], []
    # What is not UTF-8 is no packet, so its line is told; a byte order mark is none of the first timestamp.
    lines = pathlib.Path(path).read_text(encoding="utf-8-sig", errors="replace").splitlines()
    for number, line in enumerate(lines, 1):
        if not line.strip():
            continue
        time, digits = [*line.split(maxsplit=1), ""][:2]
        digits = digits.strip()
        packet, error = b"", None
        try:
            packet = bytes.fromhex(digits)
        except ValueError:
            error = f"{digits!r} is not a packet in hexadecimal digits"
        places.append(number)
        times.append(time)
        packets.append(packet)
        errors.append(error)
    read_times = pandas.to_datetime(pandas.Series(times, dtype=object), utc=True, errors="coerce")
    table = entity.to_frame(packets)
    # Where a value is missing, there may be a reason; a number out of its range is missing without.
    for row in table.index[table.isna().any(axis=1)]:
        try:
            problem = "; ".join(entity.decode(packets[row]).warnings)
        except morvix_protocol.DecodeError as reason:
            problem = str(reason)
        errors[row] = errors[row] or problem or None
    for row in table.index[read_times.isna()]:
        errors[row] = errors[row] or f"{times[row]!r} is not a timestamp"
    for column, attribute in enumerate(entity.attributes):
        if attribute.type == "binary":
            texts = [value and base64.b64encode(value).decode("ascii") for value in table.iloc[:, column]]
            table.isetitem(column, pandas.Series(texts, dtype=object))
    head = {
        "file": pathlib.Path(path).name,
        "line": pandas.Series(places, dtype="int64"),
        "time": read_times,
        "error": pandas.Series(errors, dtype=object),
    }
    return pandas.concat([pandas.DataFrame(head, index=table.index), table], axis=1)


def decode_folder(configuration: bytes, folder: pathlib.Path, name: Optional[str], client=None) -> pandas.DataFrame:
    """The table of all captures in a folder, in the order of their names; by the workers of a Dask client, if given."""
    paths = sorted(str(path.resolve()) for path in folder.glob("*.txt"))
    if not paths:
        raise SystemExit(f"{folder}: no captures (*.txt)")
    if client is None:
        tables = [decode_capture(configuration, path, name) for path in paths]
    else:
        # Not pure: a file may have changed since a worker read it.
        tables = client.gather([client.submit(decode_capture, configuration, path, name, pure=False) for path in paths])
    return pandas.concat(tables, ignore_index=True)


def main() -> None:
    parser = argparse.ArgumentParser(description="Decodes a folder of captures into one table.")
    parser.add_argument("configuration", type=pathlib.Path)
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("table", type=pathlib.Path)
    parser.add_argument("--entity", metavar="NAME", help="the entity, where the configuration has several")
    choice = parser.add_mutually_exclusive_group()
    choice.add_argument("--scheduler", help="address of a running scheduler, such as tcp://10.0.0.5:8786")
    choice.add_argument("--processes", type=int, help="number of worker processes on this machine")
    options = parser.parse_args()
    if options.processes is not None and options.processes < 1:
        parser.error("--processes: expected 1 or more")
    try:
        configuration = options.configuration.read_bytes()
        open_entity(configuration, options.entity)
    except (OSError, morvix_protocol.ConfigurationError) as problem:
        parser.error(str(problem))
    if options.scheduler is not None:
        from distributed import Client

        with Client(options.scheduler) as client:
            table = decode_folder(configuration, options.folder, options.entity, client)
    elif options.processes is not None:
        from distributed import Client, LocalCluster

        workers = {"n_workers": options.processes, "threads_per_worker": 1, "dashboard_address": None}
        with LocalCluster(**workers) as cluster, Client(cluster) as client:
            table = decode_folder(configuration, options.folder, options.entity, client)
    else:
        table = decode_folder(configuration, options.folder, options.entity)
    table.to_csv(options.table, index=False)
    print(f"{len(table)} lines, {table['error'].notna().sum()} errors")


if __name__ == "__main__":
    main()
