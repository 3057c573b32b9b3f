#!/usr/bin/env python3
"""Decodes a folder of captures on many machines, with Dask's distributed scheduler, into one table.

    capture_folder.py CONFIGURATION FOLDER TABLE.csv [--scheduler ADDRESS | --processes N]

Each *.txt file of the folder is a capture: lines of a timestamp and a packet in hexadecimal digits. A file is decoded
as a whole, by whichever worker is free; workers need the package morvix-protocol and access to the same folder. The
table has the columns file, line, time and error, then one for each attribute. A line that cannot be decoded keeps its
row, with its error.

--scheduler names a running scheduler; --processes starts that many workers on this machine; without either, this
process does the work.
"""

import argparse
import pathlib

import morvix_protocol
import pandas


def decode_capture(configuration: bytes, path: str) -> pandas.DataFrame:
    """The table of one capture."""
    entity = morvix_protocol.loads(configuration).entity()
    times, packets, errors = [], [], []
    for line in pathlib.Path(path).read_text(encoding="utf-8").splitlines():
        time, _, digits = line.partition(" ")
        packet, error = b"", None
        try:
            packet = bytes.fromhex(digits)
        except ValueError as reason:
            error = str(reason)
        times.append(time)
        packets.append(packet)
        errors.append(error)
    table = entity.to_frame(packets)
    for row in table.index[table.isna().all(axis=1)]:
        try:
            entity.decode(packets[row])
        except morvix_protocol.DecodeError as reason:
            errors[row] = errors[row] or str(reason)
    table.insert(0, "error", pandas.Series(errors, dtype=object))
    table.insert(0, "time", pandas.to_datetime(times, utc=True))
    table.insert(0, "line", range(1, len(packets) + 1))
    table.insert(0, "file", pathlib.Path(path).name)
    return table


def decode_folder(configuration: bytes, folder: pathlib.Path, client=None) -> pandas.DataFrame:
    """The table of all captures in a folder, in the order of their names; by the workers of a Dask client, if given."""
    paths = sorted(str(path.resolve()) for path in folder.glob("*.txt"))
    if not paths:
        raise SystemExit(f"{folder}: no captures (*.txt)")
    if client is None:
        tables = [decode_capture(configuration, path) for path in paths]
    else:
        tables = client.gather([client.submit(decode_capture, configuration, path) for path in paths])
    return pandas.concat(tables, ignore_index=True)


def main() -> None:
    parser = argparse.ArgumentParser(description="Decodes a folder of captures into one table.")
    parser.add_argument("configuration", type=pathlib.Path)
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("table", type=pathlib.Path)
    workers = parser.add_mutually_exclusive_group()
    workers.add_argument("--scheduler", help="address of a running scheduler, such as tcp://10.0.0.5:8786")
    workers.add_argument("--processes", type=int, help="number of worker processes on this machine")
    options = parser.parse_args()
    configuration = options.configuration.read_bytes()
    if options.scheduler is None and options.processes is None:
        table = decode_folder(configuration, options.folder)
    else:
        from distributed import Client, LocalCluster

        if options.scheduler is None:
            cluster = LocalCluster(n_workers=options.processes, threads_per_worker=1, dashboard_address=None)
        else:
            cluster = options.scheduler
        with Client(cluster) as client:
            table = decode_folder(configuration, options.folder, client)
            if options.scheduler is None:
                cluster.close()
    table.to_csv(options.table, index=False)
    print(f"{len(table)} packets, {table['error'].notna().sum()} errors")


if __name__ == "__main__":
    main()
