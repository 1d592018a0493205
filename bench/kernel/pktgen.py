"""The kernel's own packet generator, beside the frame source: it makes UDP only, and the figures must agree."""

import os

import rows
from machine import THREE_HOOKS, NO_HOOKS, run

FRAMES = 4000
DIRECTORY = "/proc/net/pktgen"
figures = []


def is_there():
    return os.path.isdir(DIRECTORY)


def write(name, *lines):
    """Each line is a write of its own, and loses its last character."""
    for line in lines:
        with open(f"{DIRECTORY}/{name}", "w", encoding="ascii") as file:
            file.write(line + "\n")


def send(source_mac, port):
    """Instructions of a frame, its making included."""
    device = rows.interface(rows.ROW)
    write("kpktgend_0", "rem_device_all", f"add_device {device}")
    write(device, f"count {FRAMES}", "pkt_size 60", "delay 0", "clone_skb 0", "xmit_mode netif_receive",
          f"dst_mac {rows.GATEWAY_MAC.hex(':')}", f"src_mac {source_mac.hex(':')}", f"dst {rows.RESOLVER}",
          f"src_min {rows.CLIENT}", f"src_max {rows.CLIENT}", "udp_src_min 51000", "udp_src_max 51000",
          f"udp_dst_min {port}", f"udp_dst_max {port}")
    write("pgctrl", "start")
    with open(f"{DIRECTORY}/{device}", encoding="ascii") as file:
        result = file.read().split("Result: ")[1]
    if not result.startswith("OK: "):
        raise AssertionError(f"pktgen: {result}")
    return int(result.split()[1].split("(")[0]) * 1000 / FRAMES


def measure(measurement, name, source_mac, port):
    if not is_there():
        return
    before = measurement.counters.read()["uplink0"]
    cost = send(source_mac, port)
    came = measurement.counters.read()["uplink0"] - before
    row = {"name": name, "cost": cost}
    if came != FRAMES:
        row["failure"] = f"{came} frames of {FRAMES} came out"
    figures.append(row)
    print(f"pktgen {name:40} {cost:10.1f} {row.get('failure', '')}", flush=True)


def measure_without_module(measurement):
    measure(measurement, "bridge alone", rows.STRANGER, 53)
    # Its address may lie deeper in the bridge's own table.
    measure(measurement, "bridge alone: client", rows.ONLY_CLIENT, 53)
    if is_there():
        measurement.source.set_hooks(THREE_HOOKS)
        measure(measurement, "three empty hooks", rows.STRANGER, 53)
        measurement.source.set_hooks(NO_HOOKS)
