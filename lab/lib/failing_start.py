"""The module is loaded with the first request of the load failing, then the second, until none is left to fail. A load
that fails leaves nothing: no module, device, proc directory or thread. One that succeeds all the same takes a command,
says in the log what it could not have, as far as it has a word for it, and unloads like any other.

usage: failing_start.py MODULE.ko   with the bridge and client-1-1 of lab/lib/topology.sh
"""

import collections
import ctypes
import errno
import itertools
import os
import select
import struct
import sys
import time

from fault_injection import POINTS, FaultInjection, libc, system_call, told
from frame_bytes import good_frame
from frame_wire import Listener, Sender, stay_on_one_processor, wait_for_port
from system_calls import DELETE_MODULE, FINIT_MODULE

NODE = "/dev/CP_dev_of_this_program"
DIRECTORIES = ("/proc/cp_dns_aRecord", "/proc/captive_portal")
FILES = ("/proc/cp_dns_aRecord/summary",
         *(f"/proc/captive_portal/{name}" for name in ("status", "clients", "garden", "counters", "cache")))
# What the module says of itself.
BEGINS = "captive_portal_init"
HAS_NO_HOOKS = "nf_register_hook fail"
HAS_NO_DEVICE = "[captive portal] captive_portal_misc_dev failed!!"
HAS_THREAD = "wake_up_process schedule_check_thread"
PORTAL_ON = struct.pack("<IiI16s", 1, 0, 1, b"")
OURS = b"\2\0\x09"


def is_loaded():
    return os.path.isdir("/sys/module/captive_portal")


def minor_of_device():
    with open("/proc/misc", encoding="ascii") as file:
        return next((int(number) for number, name in map(str.split, file) if name == "CP_dev"), None)


def has_thread():
    for process in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{process}/comm", encoding="utf-8") as file:
                if file.read().startswith("schedule_check"):
                    return True
        except (FileNotFoundError, ProcessLookupError):
            pass
    return False


class Log:
    """The kernel's log from here on."""

    def __init__(self):
        self.file = os.open("/dev/kmsg", os.O_RDONLY)

    def begin(self):
        os.lseek(self.file, 0, os.SEEK_END)

    def lines(self):
        texts = []
        while select.select([self.file], [], [], 0)[0]:
            try:
                texts.append(os.read(self.file, 8192).decode(errors="replace").partition(";")[2].split("\n")[0])
            except BrokenPipeError:  # the oldest lines went
                continue
        return texts


class Wire:
    """A ping of a client, which a portal drops, and behind it a frame that passes every hook and comes to all ports."""

    def __init__(self):
        stay_on_one_processor()
        wait_for_port("wlan-1-1")
        wait_for_port("uplink0")
        self.sender = Sender("client-1-1", "eth0")
        self.listener = Listener("upstream", "eth0")
        self.number = 0

    def ping_passes(self):
        self.number += 1
        ours = OURS + self.number.to_bytes(3, "big")
        ping = good_frame("icmp/203.0.113.10")
        last = b"\xff" * 6 + ours + b"\x88\xb5" + bytes(46)
        # To everybody, whatever the bridge has learned.
        self.sender.send("linear", b"\xff" * 6 + ours + ping[12:])
        self.sender.send("linear", last)
        passed = False
        deadline = time.monotonic() + 30
        while time.monotonic() < deadline:
            select.select([self.listener.wire], [], [], 1)
            for frame, _, _ in self.listener.arrivals():
                if frame == last:
                    return passed
                passed |= frame[6:12] == ours
        raise SystemExit("no frame comes through the bridge")


def expect(where, what, wanted, got):
    if wanted != got:
        raise SystemExit(f"{where}: {what}: wanted {wanted}, got {got}")


def call_device(where):
    """By a node of its own: the kernel may have had no memory for the device's."""
    minor = minor_of_device()
    if minor is None:
        raise SystemExit(f"{where}: loaded without its device")
    os.mknod(NODE, 0o20600, os.makedev(10, minor))
    device = os.open(NODE, os.O_RDWR)
    os.unlink(NODE)
    record = ctypes.create_string_buffer(PORTAL_ON)
    expect(where, "the portal's switch", 0, system_call(libc.ioctl, device, 1, ctypes.addressof(record)))
    os.close(device)


def look_at_loaded(where, lines, wire):
    """What is missing, by name."""
    call_device(where)
    expect(where, "lines of its start", 1, lines.count(BEGINS))
    expect(where, "lines that there is no device", 0, lines.count(HAS_NO_DEVICE))
    missing = [name for name in ("/dev/CP_dev", *FILES) if not os.path.exists(name)]
    thread = has_thread()
    expect(where, "lines of the thread's start", int(thread), lines.count(HAS_THREAD))
    hooks = not wire.ping_passes()
    expect(where, "lines that there are no hooks", int(not hooks), lines.count(HAS_NO_HOOKS))
    return missing + ["the thread"] * (not thread) + ["the hooks"] * (not hooks)


def look_at_refused(where, lines):
    if is_loaded():
        raise SystemExit(f"{where}: refused, but the module is there")
    expect(where, "the device", None, minor_of_device())
    expect(where, "what is left", [], [name for name in ("/dev/CP_dev", *DIRECTORIES) if os.path.exists(name)])
    expect(where, "the thread", False, has_thread())
    # Most are refused before the module has a say.
    expect(where, "lines that there is no device", lines.count(BEGINS), lines.count(HAS_NO_DEVICE))


def unload(where):
    result = system_call(libc.syscall, DELETE_MODULE, b"captive_portal", os.O_NONBLOCK)
    if result or is_loaded():
        raise SystemExit(f"{where}: the module does not unload: {result}")


def main(path):
    faults = FaultInjection()
    log = Log()
    wire = Wire()
    file = os.open(path, os.O_RDONLY)
    empty = ctypes.create_string_buffer(b"")
    load = (libc.syscall, FINIT_MODULE, file, empty, 0)
    expect("without the module", "a ping passes", True, wire.ping_passes())
    # What a first load alone asks for is not the module's.
    log.begin()
    if result := system_call(*load):
        raise SystemExit(f"the module does not load: {result}")
    missing = look_at_loaded("a load without a failure", log.lines(), wire)
    expect("a load without a failure", "what is missing", [], missing)
    unload("a load without a failure")
    results = collections.Counter()
    failures = collections.Counter()
    without = collections.Counter()
    log.begin()
    # What else a load asks for depends on what the slab has left, so a copy may be passed over by the first sweep.
    for number, result, failed in itertools.chain(faults.each(*load), faults.each_copy(*load)):
        where = f"request {number} ({failed})"
        lines = log.lines()
        if result == 0:
            missing = look_at_loaded(where, lines, wire)
            unload(where)
        else:
            missing = []
            look_at_refused(where, lines)
        if not failed:
            expect(where, "the load, with nothing that failed", (0, []), (result, missing))
        else:
            results[errno.errorcode[-result] if result else "loaded all the same"] += 1
            failures[failed] += 1
            without.update(missing)
        log.begin()
    print(f"    what failed: {told(failures)}")
    if absent := [what for what in POINTS.values() if not failures[what]]:
        raise SystemExit(f"none of these failed: {absent}")
    for name, count in results.most_common():
        print(f"    {count} loads: {name}")
    for name, count in without.most_common():
        print(f"    {count} of these without {name}")
    # How many requests come before the thread's depends on what the slab has left, so that it may be passed over; who
    # refuses the thread for certain is lab/life-cycle/registrations_fail.
    if not without["the hooks"]:
        raise SystemExit("no load was without hooks")


main(*sys.argv[1:])
