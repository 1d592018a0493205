"""Everything that the module does, at once, for some seconds; prints nothing, writes how often each thing was done.

usage: everything.py MODULE SECONDS COUNTS

Each kind of work is a process of its own and goes on from the first load to the last unload. What holds the module, the
commands and their one open device, ends every few seconds, and the module goes and comes back meanwhile.
"""

import collections
import contextlib
import ctypes
import errno
import mmap
import os
import random
import socket
import struct
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "lib"))
from frame_bytes import ACCESS_POINT_MAC, change_frame, dns_answer, ethernet, good_frame, ipv4, udp, UDP
from frame_wire import packet_socket
from system_calls import load_module, unload_module

SUMMARY = "/proc/cp_dns_aRecord/summary"
STATUS = "/proc/captive_portal"
STATUS_FILES = ("status", "clients", "garden", "cache", "counters")
KEYWORDS = {"module", "interface", "owe", "client", "default-rule", "rule", "cached", "cached-name", "count"}
# Of what the module counts, by name: each must have happened before some unload.
REASONS = ("marked-portal", "redirect-portal", "redirect-mirel", "redirect-reputation", "redirect-logout",
           "redirect-social-login", "redirect-dns-filter", "reply-rewritten", "connection-recorded", "connection-ended",
           "walled-garden", "dhcp-dns", "dns-answer", "address-stored", "address-refreshed", "address-expired", "ipv6",
           "icmp", "udp", "login")
DEVICE = "/dev/CP_dev"
SESSION = 8  # seconds, in which the expiry thread passes once at the start and once more after six
CLIENTS = 300
BATCH = 4
ROWS = (b"wlan-1-1", b"wlan-3-8", b"wlan-2-2")
ROWS_IN_ALL = 28
NAMES = ("www.example.org", "garden.example.org", "a.b.example.net", "www.example.com")

libc = ctypes.CDLL(None, use_errno=True)
libc.ioctl.argtypes = [ctypes.c_int, ctypes.c_ulong, ctypes.c_void_p]

# --- counts, which all processes share -------------------------------------------

COUNTS = ("frames from wlan-1-1", "frames from wlan-3-8", "answers of the name service", "replies",
          *(f"calls of command {number}" for number in range(1, 12) if number != 5),
          "opens in vain", "readings of the proc file", "addresses listed", "writings of the proc file",
          *(f"readings of the status file {name}" for name in STATUS_FILES),
          *(f"lines of the kind {keyword}" for keyword in sorted(KEYWORDS)),
          "new bridge addresses", "moves of a port", "loads", "unloads under all that", "expiry passes",
          *(f"counted as {reason}" for reason in REASONS))


class Counts:
    """One writer for each name, so adding needs no lock."""

    def __init__(self):
        self.memory = mmap.mmap(-1, 4096)
        self.words = memoryview(self.memory).cast("Q")
        self.last = len(COUNTS)

    def add(self, name, number=1):
        place = COUNTS.index(name)
        self.words[place] = self.words[place] + number

    def stop(self):
        self.words[self.last] = 1

    @property
    def stopped(self):
        return self.words[self.last] != 0


# --- frames ------------------------------------------------------------------------


def station(number):
    return b"\x02\x00\x00\x07" + struct.pack("!H", number)


def from_station(frame, number):
    return frame[:6] + station(number) + frame[12:]


def requests(first):
    """Of hundreds of clients: what each hook does with a frame depends on all of it."""
    kinds = [good_frame(word) for word in (
        "tcp/203.0.113.10/80", "tcp/203.0.113.10/443", "tcp/203.0.113.20/80", "tcp/203.0.113.30/80", "tcp/2.2.2.2/443",
        "tcp/4.4.4.4/80", "tcp/1.2.3.4/80", "tcp/198.18.0.7/80", "tcp/192.168.100.1/80", "dns/203.0.113.53", "dhcp",
        "icmp/203.0.113.10", "ipv6/6", "arp", "udp/203.0.113.10/9999")]
    frames = []
    for number in range(CLIENTS):
        frame = kinds[number % len(kinds)]
        if frame[12:14] == b"\x08\x00" and frame[23] == 6:
            frame = change_frame(frame, f"client-port={40000 + number % 64}")
            if number % 7 == 0:
                frame = change_frame(frame, "flags=11")
        frames.append(from_station(frame, first + number))
    return frames


def answers():
    """Addresses that live for none to six seconds, some of them with names that the rules permit."""
    frames = []
    for number in range(CLIENTS):
        addresses = [f"198.18.{number % 3}.{(number * 3 + i) % 250}" for i in range(3)]
        message = bytearray(dns_answer(NAMES[number % len(NAMES)], addresses))
        message = message.replace(struct.pack("!HHHI", 0xC00C, 1, 1, 3600), struct.pack("!HHHI", 0xC00C, 1, 1, number % 7))
        datagram = udp("203.0.113.53", "192.168.100.61", 53, 40000, bytes(message))
        frame = ethernet(0x0800, ipv4(UDP, datagram, "192.168.100.61", "203.0.113.53"), station(number % 16))
        frames.append(frame[:6] + b"\x02\x00\x00\x00\x00\xfe" + frame[12:])
    return frames


def replies():
    frames = []
    for number in range(CLIENTS):
        port = (10081, 30088, 84, 10444, 10089, 1025, 20082, 82)[number % 8]
        frame = change_frame(good_frame(f"reply/{port}/{40000 + number % 64}"), f"to={station(number % 16).hex(':')}")
        if number % 11 == 0:
            frame = change_frame(frame, "flags=11")
        frames.append(frame[:6] + ACCESS_POINT_MAC + frame[12:])
    return frames


class Message(ctypes.Structure):
    """struct mmsghdr: what stands before `sent` is a struct of its own, which ends at a multiple of eight bytes."""
    _fields_ = [("name", ctypes.c_void_p), ("name_length", ctypes.c_uint), ("vector", ctypes.c_void_p),
                ("vectors", ctypes.c_size_t), ("control", ctypes.c_void_p), ("control_length", ctypes.c_size_t),
                ("flags", ctypes.c_int), ("padding", ctypes.c_int), ("sent", ctypes.c_uint)]


class Batches:
    """The same frames again and again, many with one call of the kernel."""

    def __init__(self, namespace, device, frames):
        self.wire = packet_socket(namespace, device, 0)
        # A packet's own header comes first on such a socket.
        self.buffers = [ctypes.create_string_buffer(bytes(10) + frame, 10 + len(frame)) for frame in frames]
        self.vectors = (ctypes.c_size_t * (2 * len(frames)))()
        self.messages = (Message * len(frames))()
        for number, buffer in enumerate(self.buffers):
            self.vectors[2 * number:2 * number + 2] = [ctypes.addressof(buffer), len(buffer)]
            self.messages[number].vector = ctypes.addressof(self.vectors) + 16 * number
            self.messages[number].vectors = 1
        self.next = 0

    def send(self):
        """How many went."""
        count = min(BATCH, len(self.messages) - self.next)
        at = ctypes.addressof(self.messages) + self.next * ctypes.sizeof(Message)
        sent = libc.sendmmsg(self.wire.fileno(), ctypes.c_void_p(at), count, 0)
        if sent < 0 and ctypes.get_errno() not in (errno.ENOBUFS, errno.ENETDOWN, errno.ENXIO):
            raise OSError(ctypes.get_errno(), "sendmmsg")
        # A frame that could not go is passed over.
        self.next = (self.next + max(sent, 1)) % len(self.messages)
        return max(sent, 0)


def pour(counts, name, processor, namespace, device, frames):
    """On one processor, or wherever there is time."""
    if processor is not None:
        os.sched_setaffinity(0, {processor(os.sched_getaffinity(0))})
    batches = Batches(namespace, device, frames)
    while not counts.stopped:
        counts.add(name, batches.send())
        # More than the hooks can look at are thrown away before them, and nobody else gets to do anything.
        time.sleep(0.02)


# --- the proc file ------------------------------------------------------------------


def with_summary(counts, use):
    """Opens the proc file and uses it 40 times, again and again; the file goes and comes back with the module."""
    while not counts.stopped:
        try:
            file = os.open(SUMMARY, os.O_RDWR)
        except FileNotFoundError:
            time.sleep(0.01)
            continue
        try:
            for number in range(40):
                use(file, number)
                time.sleep(0.003)
        except OSError as error:
            if error.errno != errno.EIO:
                raise
        finally:
            os.close(file)


def read_summary(counts):
    def use(file, number):
        os.write(file, (b"all", b"mirel", b"wlan-1-1", b"198.18.0.3")[number % 4])
        counts.add("writings of the proc file")
        text = os.pread(file, (1 << 20, 4096, 300)[number % 3], 0)
        if not text.startswith(b"Captive Portal DNS A Record Info, target="):
            raise SystemExit(f"a listing that is none: {text!r:.200}")
        counts.add("readings of the proc file")
        counts.add("addresses listed", text.count(b"IP="))

    with_summary(counts, use)


def read_summary_too(counts):
    """A second reader beside the one that counts."""
    with_summary(counts, lambda file, _: os.pread(file, 65536, 0))


# --- the status files ---------------------------------------------------------------


def read_status_files(counts):
    """In pieces of three sizes, which the kernel makes of its lines as it goes on; the module may be gone at any time,
    which ends a file that is open."""
    number = 0
    while not counts.stopped:
        for name in STATUS_FILES:
            number += 1
            with contextlib.suppress(FileNotFoundError):
                text, whole = read_status_file(name, (65536, 4096, 300)[number % 3])
                look_at_lines(counts, name, text, whole)
                counts.add(f"readings of the status file {name}")
        time.sleep(0.003)


def read_status_file(name, length):
    """The text, and whether it was read to its end."""
    file = os.open(f"{STATUS}/{name}", os.O_RDONLY)
    text = b""
    try:
        while part := os.read(file, length):
            text += part
    except OSError as error:
        if error.errno != errno.EIO:
            raise
        return text, False
    finally:
        os.close(file)
    return text, True


def look_at_lines(counts, name, text, whole):
    lines = text.decode("ascii").split("\n")
    # What is behind the last line's end: nothing, or a line that was cut off by the module's end.
    if lines.pop() and whole:
        raise SystemExit(f"{name} ends amid a line: {text[-200:]!r}")
    kinds = collections.Counter(line.split(" ")[0] for line in lines)
    if not kinds.keys() <= KEYWORDS:
        raise SystemExit(f"lines of {name} that are none: {kinds} in {text!r:.2000}")
    for keyword, number in kinds.items():
        counts.add(f"lines of the kind {keyword}", number)
    if name == "status" and whole and sum(line.startswith("interface ") for line in lines) != ROWS_IN_ALL:
        raise SystemExit(f"not all rows: {text!r}")


# --- the network changes -------------------------------------------------------------


def change_network(counts):
    addresses = "address add 192.168.100.2/24 dev br0", "address del 192.168.100.2/24 dev br0"
    port = ("link set wlan-2-2 nomaster", "link set wlan-2-2 master br0", "link set wlan-2-2 down",
            "link set wlan-2-2 name wlan-2-3", "link set wlan-2-3 up", "link set wlan-2-3 down",
            "link set wlan-2-3 name wlan-2-2", "link set wlan-2-2 up")
    number = 0
    while not counts.stopped:
        number += 1
        lines = [addresses[(number + 1) % 2], f"link set br0 address 02:00:00:00:00:{1 + number % 2:02x}", *port]
        subprocess.run(["ip", "-batch", "-"], input="\n".join(lines) + "\n", text=True, check=True)
        counts.add("new bridge addresses")
        counts.add("moves of a port")
        time.sleep(0.3)
    subprocess.run(["ip", "link", "set", "br0", "address", ACCESS_POINT_MAC.hex(":")], check=True)


# --- commands ------------------------------------------------------------------------


class Device:
    def __init__(self, counts):
        self.counts = counts
        self.file = os.open(DEVICE, os.O_RDWR)

    def call(self, command, record, wanted=(0,)):
        if isinstance(record, int):
            result = libc.ioctl(self.file, command, record)
        else:
            buffer = ctypes.create_string_buffer(record, len(record))
            result = libc.ioctl(self.file, command, ctypes.addressof(buffer))
        if result not in wanted:
            raise SystemExit(f"command {command} gave {result}, errno {ctypes.get_errno()}")
        self.counts.add(f"calls of command {command}")
        return result


def rules(command, row, enable, names=(), networks=()):
    body = b"".join(struct.pack("<III128s", 0, 0, 0, name) for name in names)
    body += b"".join(struct.pack("<I4s4s128x", 1, socket.inet_aton(address), socket.inet_aton(mask))
                     for address, mask in networks)
    return struct.pack("<IiIi", command, row, enable, len(names) + len(networks)) + body.ljust(24 * 140, b"\0")


def set_portal(device, dice):
    """Command 1, 2, 6 and 7."""
    command, value = dice.choice(((1, 0), (1, 1), (1, 1), (1, 7), (1, 8), (5, 0), (5, 1), (5, 2), (7, 0), (7, 1), (9, 0),
                                  (9, 1), (0, 1), (8, 0)))
    row = dice.choice((0, 23, dice.randrange(28)))
    text = dice.choice((b"", b"1.2.3.4", b"203.0.113.20")) if command == 8 else b""
    device.call(1, struct.pack("<IiI16s", command, row, value, text))
    device.call(2, struct.pack("<II312x", 2, dice.randrange(25)))
    device.call(6, socket.inet_aton(dice.choice(("192.168.100.254", "10.0.0.1"))))
    device.call(7, bytes(4))


def set_garden(device, dice):
    """Command 3 and 4: rules by which the addresses of the cache are judged anew."""
    row = dice.choice((0, 23, dice.randrange(28)))
    names = dice.choice(((), (b"*.example.org",), (b"www.example.com", b"garden.*", b"*.example.net") * 4))
    networks = dice.choice(((), (("203.0.113.20", "255.255.255.255"), ("198.18.0.0", "255.255.0.0"))))
    command = dice.choice((2, 2, 2, 1, 3))
    device.call(3, rules(command, 27 if command == 3 else row, dice.randrange(2), names, networks))
    device.call(4, rules(dice.choice((4, 5)), dice.randrange(24), 0))


def set_clients(device, dice):
    """Command 8, 9 and 10."""
    row = dice.choice(ROWS)
    for _ in range(20):
        command = dice.choice((0, 2, 4, 22, 24, 26, 31)) + dice.randrange(2)
        device.call(8, client(command, row, station(dice.randrange(2 * CLIENTS))))
    command = dice.choice((10, 10, 10, 12, 16, 30, 34) + ((9,) if dice.randrange(20) == 0 else ()))
    device.call(8, client(command, row, bytes(6), dice.randrange(4), dice.randrange(4), dice.choice((b"wlan-1-15", b"wlan-3-14"))))
    device.call(9, struct.pack("<III16s16s", dice.choice((6, 7, 8, 11, 14, 20, 21, 28, 33)), 0, 0, row,
                               b"wlan-1-15").ljust(16592, b"\0"))
    device.call(10, struct.pack("<I16s6s2xI", dice.choice((18, 19, 29, 35)), row, station(dice.randrange(CLIENTS)), 0))


def client(command, row, mac, behavior=0, status=0, companion=b""):
    return struct.pack("<III16s16s6s2x", command, behavior, status, row, companion, mac)


def set_debug_level(device, dice):
    """Command 11, and a second opener. Level 3 says so much that it may only be short."""
    device.call(11, dice.choice((0, 1, 2, 3)))
    time.sleep(0.005)
    device.call(11, 0)
    try:
        os.close(os.open(DEVICE, os.O_RDWR))
        raise SystemExit("a second open succeeded")
    except OSError as error:
        if error.errno != errno.EBUSY:
            raise
    device.counts.add("opens in vain")
    time.sleep(0.05)


def repeat(work, device, seed, until):
    dice = random.Random(seed)
    while time.monotonic() < until:
        work(device, dice)
        time.sleep(0.001)


# --- all of it -------------------------------------------------------------------------


def start(work, *arguments):
    child = os.fork()
    if child:
        return child
    status = 1
    try:
        work(*arguments)
        status = 0
    except BaseException as error:
        print(f"  WRONG {work.__name__}: {error!r}", flush=True)
    finally:
        os._exit(status)


def wait_for(children):
    failed = [child for child in children if os.waitpid(child, 0)[1]]
    if failed:
        raise SystemExit("something of it failed")


def load(module):
    with open(module, "rb") as file:
        load_module(file.fileno())


def expiry_passes():
    """The expiry thread sleeps once before its first pass, and once after each."""
    for process in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{process}/status") as file:
                status = dict(line.split(":", 1) for line in file.read().splitlines())
        except (FileNotFoundError, ProcessLookupError):
            continue
        if status["Name"].strip().startswith("schedule_check"):
            return max(0, int(status["voluntary_ctxt_switches"]) - 1)
    raise SystemExit("there is no expiry thread")


def add_what_the_module_counted(counts):
    """Its counts begin at 0 with each load."""
    with open(f"{STATUS}/counters", encoding="ascii") as file:
        for line in file:
            words = dict(word.split("=") for word in line.split()[1:])
            if words["reason"] in REASONS:
                counts.add(f"counted as {words['reason']}", int(words["value"]))


def one_life(counts, module, seed, length):
    load(module)
    counts.add("loads")
    device = Device(counts)
    end = time.monotonic() + length
    # The portals are on before anything else: frames are redirected from the first. A machine that is slow may come to no
    # other default rule.
    for row in (0, 23, 27):
        device.call(1, struct.pack("<IiI16s", 7 if row == 27 else 1, row, 1, b""))
    device.call(3, rules(1, 0, 0, (b"*.example.com",)))
    works = set_portal, set_garden, set_clients, set_debug_level
    wait_for([start(repeat, work, device, seed * 10 + number, end) for number, work in enumerate(works)])
    os.close(device.file)
    counts.add("expiry passes", expiry_passes())
    add_what_the_module_counted(counts)
    unload_module()
    counts.add("unloads under all that")


def main(module, seconds, file):
    counts = Counts()
    jobs = [(pour, counts, "frames from wlan-1-1", min, "client-1-1", "eth0", requests(0)),
            (pour, counts, "frames from wlan-3-8", max, "client-3-8", "eth0", requests(CLIENTS)),
            (pour, counts, "answers of the name service", None, "upstream", "eth0", answers()),
            (pour, counts, "replies", None, "", "br0", replies()),
            (read_summary, counts), (read_summary_too, counts), (read_status_files, counts), (change_network, counts)]
    children = [start(*job) for job in jobs]
    end = time.monotonic() + seconds
    lives = 0
    while time.monotonic() < end:
        lives += 1
        # Every third life is a short one.
        one_life(counts, module, lives, 1 if lives % 3 == 0 else SESSION)
        time.sleep(0.2)
        gone = os.waitpid(-1, os.WNOHANG)
        if gone[0]:
            raise SystemExit(f"one of them ended with status {gone[1]}")
    counts.stop()
    wait_for(children)
    with open(file, "w") as lines:
        for number, name in zip(counts.words, COUNTS):
            lines.write(f"{number} {name}\n")


main(sys.argv[1], float(sys.argv[2]), sys.argv[3])
