#!/usr/bin/env python3
"""Measures, inside the machine, what a frame costs on each way through the bridge, and writes the figures as JSON.

Usage: measure.py UNIT CAPTIVE_PORTAL.KO FIGURES.json      UNIT: what the machine's clock counts

Every row is run twice: once with a capture at the place where its frames must come out, which compares them byte for
byte, and the packet's mark; once for the figure, where the devices' counters must say the same. A row of which a frame
went another way has no figure.
"""

import json
import os
import statistics
import sys
import time
import traceback

import rows
from machine import (NO_HOOKS, POST_ROUTING_HOOK, THREE_HOOKS, Capture, ControlDevice, Counters, FrameSource,
                     load_module, nft, unload_module)
import pktgen

# How many batches, of how many frames. Into few of the short ones falls an interrupt of the clock, so that the median
# has none; User Mode Linux's clock has steps of 256 nanoseconds.
BATCHES = {"instructions": (31, 64), "nanoseconds": (301, 512)}
# What the figure is: of times the fastest batch, as other work of the host only makes batches slower.
FIGURE = {"instructions": statistics.median, "nanoseconds": min}


class Measurement:
    def __init__(self, unit):
        self.batches, self.in_batch = BATCHES[unit]
        self.figure = FIGURE[unit]
        self.source = FrameSource()
        self.counters = Counters(rows.PORTS)
        self.figures = []
        self.commands = {}

    def check_way(self, way):
        """Every frame of it comes out where, and as, it must."""
        capture = Capture(way.comes_out_at, way.mark)
        seen = []
        try:
            # As many as the capture's buffer holds.
            for first in range(0, len(way.frames), 64):
                frames = way.frames[first:first + 64]
                self.source.run(way.device, way.kind, frames, 1, len(frames))
                seen += capture.frames()
        finally:
            capture.close()
        wanted = way.expected
        if seen != wanted:
            shown = "".join(f"\n  seen   {frame.hex()}" for frame in seen[:2])
            raise AssertionError(f"{len(seen)} frames with mark {way.mark} at {way.comes_out_at}, of {len(wanted)}{shown}"
                                 f"\n  wanted {wanted[0].hex()}")

    def time_way(self, way):
        # Frames that go their way only once are not sent twice.
        batches, in_batch = (self.batches, self.in_batch) if way.is_repeatable else (rows.NEW_BATCHES, rows.NEW_IN_BATCH)
        before = self.counters.read()
        times = self.source.run(way.device, way.kind, way.frames, batches, in_batch)
        after = self.counters.read()
        moved = {device: after[device] - before[device] for device in after if after[device] != before[device]}
        if way.kind == rows.SENT and way.device == "br0":
            moved.pop("br0", None)
        wanted = {way.comes_out_at: batches * in_batch}
        if moved != wanted:
            raise AssertionError(f"frames came out at {moved}, not at {wanted}")
        return [nanoseconds / in_batch for nanoseconds in times]

    def measure(self, group, name, way, **more):
        """Returns nothing: a row that failed is a row without a figure, and the reader's business."""
        row = {"group": group, "name": name, "bare": way.bare, "way": way.name, **more}
        try:
            if way.is_repeatable:
                self.check_way(way)
            costs = self.time_way(way)
            row.update(cost=self.figure(costs), median=statistics.median(costs))
            print(f"{group:24} {name:60} {row['cost']:10.1f} {row['median']:10.1f}", flush=True)
        except (AssertionError, OSError) as error:
            row["failure"] = str(error)
            print(f"{group:24} {name:60} FAILED: {error}", flush=True)
        self.figures.append(row)

    def measure_commands(self, control):
        """Adding a client to full tables, and a command that does nothing; batch beside batch, the fastest of each."""
        interface, unknown = rows.interface(rows.ROW_WITHOUT_PORTAL), 99
        addresses = [rows.client("white", rows.ROWS, number) for number in range(10000)]
        times = {"add": [], "nothing": []}
        for first in range(0, len(addresses), 500):
            batch = addresses[first:first + 500]
            for name, command in (("nothing", unknown), ("add", rows.TABLES["white"])):
                times[name].append(control.time_of_commands(
                    [control.client_record(command, interface, address) for address in batch]))
        self.commands = {name: min(batches) for name, batches in times.items()}
        print(f"commands: {self.commands}", flush=True)

    def timed(self, what, function, *arguments):
        started = time.monotonic()
        function(*arguments)
        print(f"-- {what}: {time.monotonic() - started:.2f} s of the machine's time", flush=True)


def measure_without_module(measurement):
    # Every address is learned before anything is measured: a table of the bridge that grows costs differently.
    for way in rows.BARE_WAYS:
        measurement.source.run(way.device, way.kind, way.frames, 1, len(way.frames))
    time.sleep(1)
    for way in rows.BARE_WAYS:
        measurement.measure("bridge alone", way.name, way)
    measurement.source.set_hooks(THREE_HOOKS)
    for way in (rows.BARE_TCP, rows.BARE_DNS):
        measurement.measure("three empty hooks", way.name, way)
    measurement.source.set_hooks(POST_ROUTING_HOOK)
    measurement.measure("post-routing hook that accepts", rows.BARE_LOCAL.name, rows.BARE_LOCAL)
    measurement.source.set_hooks(NO_HOOKS)


def measure_rulesets(measurement, directory):
    for ruleset in rows.RULESETS:
        load_ruleset(directory, ruleset)
        nft(rows.marks_of_ruleset())
        measurement.timed(f"filling {ruleset}", rows.fill_ruleset, ruleset)
        for way, role in rows.ways_of_ruleset(ruleset):
            measurement.measure(ruleset, role, way)
        load_ruleset(directory, "garden")
        nft(rows.garden_elements())
        measurement.measure(ruleset, "garden: address that is listed", rows.GARDEN)
        nft("delete table bridge admission")


def load_ruleset(directory, name):
    with open(os.path.join(directory, f"{name}.nft"), encoding="utf-8") as file:
        nft(file.read())


def measure_module(measurement, file):
    load_module(file)
    control = ControlDevice()
    measurement.measure("module", "portal off, nothing in any table", rows.BARE_TCP)

    for row in range(rows.ROWS):
        if row != rows.ROW_WITHOUT_PORTAL:
            control.set_portal_mode(row, 1)
    for table, command in rows.TABLES.items():
        only_client = rows.interface(rows.ROW), [rows.client(table, rows.ROW, 0)]
        control.add_clients(command, *only_client)
        measurement.measure("module", f"admitted by {table}", rows.admitted(table, 1), state="1 client", size=1)
        if table == "login":
            measurement.measure("module", rows.ADMITTED_DNS.name, rows.ADMITTED_DNS, state="1 client", size=1)
            pktgen.measure(measurement, rows.ADMITTED_DNS.name, rows.ONLY_CLIENT, 53)
        control.add_clients(rows.OPPOSITE + command, *only_client)
    for way in (*rows.UNADMITTED, rows.DNS_OF_STRANGER):
        measurement.measure("module", way.name, way, state="no client", size=1)
    pktgen.measure(measurement, rows.DNS_OF_STRANGER.name, rows.STRANGER, 53)
    measurement.timed("filling", fill, control)
    state, size = f"24 x {rows.FULL:,} clients in each table", rows.FULL
    for table in rows.TABLES:
        measurement.measure("module", f"admitted by {table}", rows.admitted(table, size), state=state, size=size)
    for way in rows.UNADMITTED:
        measurement.measure("module", way.name, way, state=state, size=size)
    measurement.measure("module", rows.FIRST_SEGMENTS.name, rows.FIRST_SEGMENTS,
                        state=f"none to {len(rows.NEW_CONNECTIONS):,} connections", size=rows.FULL)
    control.set_address_rules(rows.ROW, rows.GARDEN_NETWORKS)
    measurement.measure("module", rows.GARDEN.name, rows.GARDEN, state="24 address rules", size=rows.FULL)
    control.set_portal_mode(rows.ROW, 7)
    measurement.measure("module", rows.MODE_7.name, rows.MODE_7, size=rows.FULL)
    measurement.measure_commands(control)
    control.close()
    unload_module("captive_portal")


def fill(control):
    """In turns: no table has the clients that came last alone."""
    for number in range(rows.FULL):
        for row in range(rows.ROWS):
            for table, command in rows.TABLES.items():
                control.add_clients(command, rows.interface(row), [rows.client(table, row, number)])


def main():
    unit, module, output = sys.argv[1:]
    measurement = Measurement(unit)
    measurement.source.end_at("br0")
    failure = None
    try:
        measure_without_module(measurement)
        pktgen.measure_without_module(measurement)
        measure_rulesets(measurement, os.path.join(os.path.dirname(__file__), "../nft"))
        measure_module(measurement, module)
    except Exception:  # What was measured until then is written all the same.
        failure = traceback.format_exc()
        print(failure, flush=True)
    with open(output, "w", encoding="utf-8") as file:
        json.dump({"unit": unit, "rows": measurement.figures,
                   "pktgen": pktgen.figures, "commands": measurement.commands, "failure": failure}, file, indent=1)


if __name__ == "__main__":
    main()
