"""Fills and empties the client tables while frames come in, and unloads the module right behind the last call.

usage: thousands_of_clients.py pour | fill-and-flush | leave

The access point has wlan-1-1 (client-1-1) and wlan-3-8 (client-3-8) with the portal and the MIREL portal on; pings from
there to a server upstream pass if their sender is on a list of that port's, or on the MIREL white list.

    pour            sends without end, from senders on lists and on none
    fill-and-flush  2,000 clients come, most of them go, the rest is flushed.  An admitted client's frames come out one
                    and all, another's never do; after each step the same is said of every client at both ports
    leave           some clients are on their lists still when the module goes, so it is the unload that ends the index

The module's own pages are read from /proc/vmallocinfo: the index must have grown and shrunk, or nothing was shown.
"""

import contextlib
import ctypes
import mmap
import os
import re
import struct
import sys
import time

from frame_bytes import good_frame
from frame_wire import Listener, Sender, wait_readable
from system_calls import unload_module

SET_CLIENTS, SET_WHITE, SET_GA_WHITE, SET_AUTH, SET_LOGIN, SET_FALLBACK, SET_MIREL_WHITE = 8, 0, 26, 2, 4, 31, 24
FLUSH_PORTAL = 9
# What adds to a list; the number behind it takes off.
LISTS = (SET_LOGIN, SET_AUTH, SET_WHITE, SET_GA_WHITE, SET_FALLBACK, SET_MIREL_WHITE)
# Two of the rows have a port; each half of the rows is here twice.
ROWS = (b"wlan-1-1", b"wlan-2-4", b"wlan-2-5", b"wlan-3-8")
PORTS = (b"wlan-1-1", b"wlan-3-8")
CLIENTS, LATECOMERS = 2000, 10
SLOT_BYTES = 24
BATCH = 64
# What is counted, and what the other sender pours.
PING, OTHER = good_frame("icmp/203.0.113.10"), good_frame("udp/203.0.113.10/9999")
# Addresses as the lab gives them to stations: the leak detector's reader knows these for clients of a list.
STATION = b"\x02\x00\x00\x04"
ADMITTED, STRANGER, MARKER = 0xFFFF, 0xFFFE, 0xFFFD

# Frames that come beside the commands have a processor of their own, if there is one.
PROCESSORS = os.sched_getaffinity(0)

libc = ctypes.CDLL(None, use_errno=True)
libc.ioctl.argtypes = [ctypes.c_int, ctypes.c_ulong, ctypes.c_void_p]


def mac(number):
    return STATION + struct.pack("!H", number)


def from_station(number, frame=PING):
    return frame[:6] + mac(number) + frame[12:]


def senders():
    return {port: Sender(f"client-{port[5:].decode()}", "eth0") for port in PORTS}


def stay_on(processor):
    """A process that stays on one sees its frames arrive in the order in which it sent them."""
    os.sched_setaffinity(0, {processor})


def say(text):
    print(f"    {text}", flush=True)


class Device:
    def __init__(self):
        self.file = os.open("/dev/CP_dev", os.O_RDWR)

    def call(self, command, row=b"", number=0):
        record = ctypes.create_string_buffer(struct.pack("<III16s16s6s2x", command, 0, 0, row, b"", mac(number)), 52)
        if libc.ioctl(self.file, SET_CLIENTS, ctypes.addressof(record)):
            raise SystemExit(f"sub-command {command} gave errno {ctypes.get_errno()}")

    def close_and_unload(self):
        """With nothing between the two: what the last call left to be done later is due while the module goes."""
        os.close(self.file)
        unload_module()


class Clients:
    """What is on which list, and what must come of it."""

    def __init__(self, device):
        self.device, self.lists = device, {}

    def add(self, number):
        self.lists[number] = LISTS[number % len(LISTS)], ROWS[number // len(LISTS) % len(ROWS)]
        self.device.call(*self.lists[number], number)

    def take_off(self, number):
        command, row = self.lists.pop(number)
        self.device.call(command + 1, row, number)

    def passes(self, number, port):
        command, row = self.lists.get(number, (None, None))
        return command is not None and (command == SET_MIREL_WHITE or row == port)


# --- the index's memory ------------------------------------------------------------


def index_bytes():
    """The module's largest piece of pages of its own; 0 if it has none. Its guard page does not count."""
    with open("/proc/vmallocinfo") as file:
        sizes = re.findall(r"^\S+\s+(\d+) \S+ \[captive_portal\]", file.read(), flags=re.M)
    return max((int(size) - 4096 for size in sizes), default=0)


def wait_for_smaller_index(most):
    """The larger pages go when no hook can look at them any more."""
    deadline = time.monotonic() + 20
    while index_bytes() > most:
        if time.monotonic() > deadline:
            raise SystemExit(f"the index has {index_bytes()} bytes, not {most} at most")
        time.sleep(0.05)
    say(f"pages of the index: {index_bytes()} bytes")


# --- frames -----------------------------------------------------------------------


def pings_of_stations(listener):
    while wait_readable(listener, 30):
        for frame, _, _ in listener.arrivals():
            if frame[6:10] == STATION and frame[12:] == PING[12:]:
                yield struct.unpack("!H", frame[10:12])[0]


def arrivals_until(listener, last, what):
    """Senders of the lab's pings, in order, up to and with the last. What is queued behind it stays there: others send as
    fast as this reads, so reading all would have no end."""
    seen = []
    deadline = time.monotonic() + 30
    for number in pings_of_stations(listener):
        seen.append(number)
        if number == last:
            return seen
        if time.monotonic() > deadline:
            break
    raise SystemExit(f"{what}: only {len(seen)} came, the last from {seen[-1:]}")


def check_every_client(clients, wires, listener, what):
    """Each of the clients at both ports: its frame comes out if it is listed there, and not else."""
    passed = 0
    for port, wire in wires.items():
        for first in range(0, CLIENTS + LATECOMERS, BATCH):
            numbers = range(first, min(first + BATCH, CLIENTS + LATECOMERS))
            for number in numbers:
                wire.send("linear", from_station(number))
            wire.send("linear", from_station(MARKER))
            came = [number for number in arrivals_until(listener, MARKER, what)
                    if number in numbers]
            wanted = [number for number in numbers if clients.passes(number, port)]
            if came != wanted:
                wrong = sorted(set(came) ^ set(wanted))
                raise SystemExit(f"{what}, at {port}: these should not have come, or should have: {wrong[:20]}")
            passed += len(came)
    say(f"{what}: {passed} of {2 * (CLIENTS + LATECOMERS)} frames pass, as they should")


def frames_of_two(batches, stop):
    """An admitted client and one that is on no list, again and again: all of the one's come, none of the other's."""
    stay_on(max(PROCESSORS))
    wire, listener = senders()[b"wlan-1-1"], Listener("upstream", "eth0")
    while not stop[0]:
        for _ in range(BATCH // 2):
            wire.send("linear", from_station(STRANGER))
            wire.send("linear", from_station(ADMITTED))
        came = []
        while came.count(ADMITTED) < BATCH // 2:
            came += arrivals_until(listener, ADMITTED, "the admitted client's frames")
            if STRANGER in came:
                raise SystemExit("a frame of a client on no list has passed")
        batches[0] = batches[0] + 1
        time.sleep(0.001)


@contextlib.contextmanager
def beside(work):
    """Runs it in a process of its own, which must live as long as this lasts."""
    shared = mmap.mmap(-1, 4096)
    stop, batches = memoryview(shared)[:1], memoryview(shared)[8:16].cast("Q")
    child = os.fork()
    if child == 0:
        status = 1
        try:
            work(batches, stop)
            status = 0
        except BaseException as error:
            print(f"  WRONG: {error!r}", flush=True)
        finally:
            os._exit(status)

    def another_batch():
        before = batches[0]
        while batches[0] == before:
            if os.waitpid(child, os.WNOHANG)[0]:
                raise SystemExit("the admitted client's frames did not all pass")
            time.sleep(0.002)

    yield another_batch
    another_batch()
    stop[0] = 1
    if os.waitpid(child, 0)[1]:
        raise SystemExit("the admitted client's frames did not all pass")
    say(f"meanwhile an admitted client sent {batches[0] * BATCH // 2} frames, and all passed")


# --- the three uses -----------------------------------------------------------------


def fill_and_flush():
    device = Device()
    clients, wires, listener = Clients(device), senders(), Listener("upstream", "eth0")
    sizes = [0]

    for number in (ADMITTED, MARKER):
        for port in PORTS:
            device.call(SET_LOGIN, port, number)
    with beside(frames_of_two) as another_batch:
        another_batch()
        for number in range(CLIENTS):
            clients.add(number)
            if number % 50 == 49:
                sizes.append(index_bytes())
            if number % 250 == 249:
                another_batch()
        say(f"pages of the index: {sorted(set(sizes))} bytes")
        if len(set(sizes)) < 5 or sizes[-1] < CLIENTS * SLOT_BYTES or sizes != sorted(sizes):
            raise SystemExit("the index did not grow")
        check_every_client(clients, wires, listener, "all are there")
        for number in range(CLIENTS):
            if number % 7:
                clients.take_off(number)
        another_batch()
        # An address that it never had finds most of the index dead.
        for number in range(CLIENTS, CLIENTS + LATECOMERS):
            clients.add(number)
        wait_for_smaller_index(sizes[-1] // 2)
        check_every_client(clients, wires, listener, "most are gone")
    for number, (command, _) in list(clients.lists.items()):
        if command == SET_MIREL_WHITE:
            clients.take_off(number)
    device.call(FLUSH_PORTAL, b"all")
    device.close_and_unload()


def leave():
    device = Device()
    clients = Clients(device)
    for number in range(300):
        clients.add(number)
    if index_bytes() == 0:
        raise SystemExit("the index has no pages of its own")
    device.close_and_unload()


def pour():
    stay_on(max(PROCESSORS))
    wires = senders()
    listeners = {port: Listener("", port.decode()) for port in PORTS}
    while True:
        for port, wire in wires.items():
            numbers = range(0, CLIENTS, 100)
            for number in numbers:
                wire.send("linear", from_station(number, OTHER))
            # More are never under way: a queue that is full would throw away frames of those who count theirs.
            missing = len(numbers)
            while missing:
                if not wait_readable(listeners[port], 30):
                    raise SystemExit(f"{missing} frames did not arrive at {port}")
                missing -= sum(frame[12:] == OTHER[12:] for frame, _, _ in listeners[port].arrivals())
        time.sleep(0.005)


stay_on(min(PROCESSORS))
{"pour": pour, "fill-and-flush": fill_and_flush, "leave": leave}[sys.argv[1]]()
