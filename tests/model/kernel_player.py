"""The real module's side of protocol.md, inside a lab machine: plays steps on this kernel and tells what could be seen.

Frames enter a port through its cable's other end.  The bridge is promiscuous, so whatever the hooks let pass comes up at
br0 as well; packet sockets there and on the ports show the frame as it is, with its mark.  All of it happens before the
system call that sends the frame returns: nothing is ever waited for.  Nobody answers: the machine drops what comes up.

A process's step that needs what a real machine cannot have on order (a failed registration, a device without an IPv4
configuration) is not played; kernel_sequences.py makes sequences without them.
"""

import contextlib
import ctypes
import errno
import mmap
import os
import re
import socket
import struct
import subprocess
import time

import frames
from reference.kernel import Kernel

DEVICE, SUMMARY, MODULE = "/dev/CP_dev", "/proc/cp_dns_aRecord/summary", "captive_portal"
BRIDGE = "br0"
EPOCH = 1_700_000_000
TICKS_PER_SECOND = 100
PAGE = mmap.PAGESIZE
# The wall clock's part of a second at a load, in ticks.  The thread's passes are multiples of PERIOD apart, so each comes
# two ticks or more from both ends of a second.
FRACTION = 54
# The kernel wakes a thread that sleeps for 6000 ticks at the next tick that this divides.
WHEEL = 512

ETH_P_ALL = 3
SOL_PACKET, PACKET_VNET_HDR = 263, 15
SO_MARK, SO_RCVMARK, SO_SNDBUFFORCE, SO_RCVBUFFORCE = 36, 75, 32, 33
PACKET_HOST, PACKET_OUTGOING = 0, 4
OTHER_HOST = 3
AF_BRIDGE, RTM_NEWNEIGH, NDA_LLADDR, NUD_NOARP, NTF_MASTER = 7, 28, 2, 0x40, 4
# A request that creates or replaces, with an answer.
NLM_REPLACE = 0x505
FINIT_MODULE, DELETE_MODULE = 313, 176
VNET_HEADER = struct.Struct("<BBHHHH")
VNET_NEEDS_CHECKSUM = 1
# A mark that asks the machine's own firewall for another one.
ASKS_FIREWALL = 0x80000000
FIREWALL_MARKS = [0, 77, *range(5195, 5330)]

libc = ctypes.CDLL(None, use_errno=True)
libc.ioctl.argtypes = [ctypes.c_int, ctypes.c_ulong, ctypes.c_void_p]
libc.mmap.restype = ctypes.c_void_p
libc.mmap.argtypes = [ctypes.c_void_p, ctypes.c_size_t, ctypes.c_int, ctypes.c_int, ctypes.c_int, ctypes.c_long]
libc.munmap.argtypes = [ctypes.c_void_p, ctypes.c_size_t]
libc.mprotect.argtypes = [ctypes.c_void_p, ctypes.c_size_t, ctypes.c_int]
libc.read.argtypes = [ctypes.c_int, ctypes.c_void_p, ctypes.c_size_t]
libc.read.restype = ctypes.c_long
libc.write.argtypes = [ctypes.c_int, ctypes.c_void_p, ctypes.c_size_t]
libc.write.restype = ctypes.c_long


def run(command, text=None):
    subprocess.run(command.split(), input=text, text=True, check=True, stdout=subprocess.DEVNULL)


def result_of(call, *arguments):
    """What the kernel answered: a libc's -1 is its error's negative again."""
    result = call(*arguments)
    return -ctypes.get_errno() if result == -1 else result


class TickingKernel(Kernel):
    """The kernel around the model, as it is here: its wall clock goes on with the ticks, and its sleepers sleep longer."""

    # From one of the wheel's ticks to another.
    PERIOD = 6144

    def now(self):
        return self.seconds + (self.tick + FRACTION) // TICKS_PER_SECOND


class CallerBuffer:
    """A record at an address of this process, where the step says that it lies."""

    def __init__(self, step, data):
        border = step.get("border")
        before = len(data) if border is None else border
        front = (before + PAGE - 1) // PAGE * PAGE or PAGE
        behind = (len(data) - before + PAGE - 1) // PAGE * PAGE
        # One page more, which is taken away: there is an end.
        self.mapped = front + behind
        protection = mmap.PROT_READ | mmap.PROT_WRITE
        self.base = libc.mmap(None, self.mapped + PAGE, protection, mmap.MAP_PRIVATE | mmap.MAP_ANONYMOUS, -1, 0)
        if self.base in (None, ctypes.c_void_p(-1).value):
            raise MemoryError("no pages for a record")
        self.address = self.base + front - before
        ctypes.memmove(self.address, bytes(data), len(data))
        self.there, self.gone = len(data), b""
        if behind and step["behind"] == "read_only":
            libc.mprotect(self.base + front, behind, mmap.PROT_READ)
        elif behind:
            self.there, self.gone = before, bytes(data[before:])
            self.mapped = front
        libc.munmap(self.base + self.mapped, front + behind + PAGE - self.mapped)

    def take(self):
        """The bytes, and the pages go."""
        data = ctypes.string_at(self.address, self.there) + self.gone
        libc.munmap(self.base, self.mapped)
        return data


class KernelLog:
    """The module's lines of the kernel's log."""

    def __init__(self):
        self.file = os.open("/dev/kmsg", os.O_RDONLY | os.O_NONBLOCK)
        os.lseek(self.file, 0, os.SEEK_END)

    def take(self):
        lines = []
        while True:
            try:
                record = os.read(self.file, 8192)
            except BlockingIOError:
                return lines
            head, _, text = record.partition(b";")
            level = int(head.split(b",")[0]) & 7
            text = text.split(b"\n")[0].decode("ascii")
            text = re.sub(r"\\x([0-9a-f]{2})", lambda match: chr(int(match[1], 16)), text)
            # The module has no line of these levels; the bridge has.
            if level in (5, 6) or text.startswith(BRIDGE + ":"):
                continue
            lines.append([level, self.without_private_numbers(text) + "\n"])

    @staticmethod
    def without_private_numbers(text):
        text = re.sub(r"^(summary_write|summary_read) \[\d+\]", r"\1 [LINE]", text)
        return re.sub(r"(fragmented: )[0-9a-f]{8,16} \+ (-?\d+) > [0-9a-f]{8,16}$", r"\1PTR + \2 > PTR", text)


def packet_socket(device, protocol):
    wire = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, 0)
    wire.setsockopt(SOL_PACKET, PACKET_VNET_HDR, 1)
    wire.setsockopt(socket.SOL_SOCKET, SO_SNDBUFFORCE, 4 << 20)
    if protocol:
        wire.setsockopt(socket.SOL_SOCKET, SO_RCVMARK, 1)
        wire.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, 4 << 20)
    wire.bind((device, protocol))
    return wire


def arrivals(wire, outgoing):
    """(frame, mark, type) of what a device has received or, with `outgoing`, sent since the last look; None: of both."""
    while True:
        try:
            data, control, _, sender = wire.recvmsg(70000, 256, socket.MSG_DONTWAIT)
        except BlockingIOError:
            return
        if outgoing is not None and (sender[2] == PACKET_OUTGOING) != outgoing:
            continue
        mark = 0
        for level, kind, value in control:
            if (level, kind) == (socket.SOL_SOCKET, SO_MARK):
                (mark,) = struct.unpack("<I", value)
        yield data[VNET_HEADER.size :], mark, sender[2]


class Bridge:
    """br0 with a cable to each port.  No port forwards to another: the way out of the bridge is a step of its own."""

    def __init__(self, ports):
        commands = [f"link add {BRIDGE} type bridge stp_state 0 forward_delay 0 mcast_snooping 0",
                    f"link set {BRIDGE} mtu 65535 promisc on up"]
        for port in ports:
            commands += [f"link add {port} type veth peer name {self.other_end(port)}",
                         f"link set {port} mtu 65535 master {BRIDGE} up", f"link set {self.other_end(port)} mtu 65535 up",
                         f"link set {port} type bridge_slave learning off isolated on"]
        for setting in ("ipv6/conf/all/disable_ipv6=1", "ipv6/conf/default/disable_ipv6=1", "ipv4/conf/all/arp_ignore=8"):
            run("sysctl -q -w net/" + setting)
        run("ip -batch -", "\n".join(commands) + "\n")
        run("nft -f -", self.firewall())
        self.senders = {port: packet_socket(self.other_end(port), 0) for port in ports}
        self.leaving = {port: packet_socket(port, ETH_P_ALL) for port in ports}
        self.own = packet_socket(BRIDGE, 0)
        self.coming_up = packet_socket(BRIDGE, ETH_P_ALL)
        self.netlink = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, socket.NETLINK_ROUTE)
        self.mac = self.addresses = None
        self.ways = {}

    @staticmethod
    def other_end(port):
        return "far" + port[-12:]

    @staticmethod
    def firewall():
        """Marks on order between the module's hooks, and silence: what comes up meets no stack."""
        wish = ", ".join(f"{ASKS_FIREWALL | mark:#x} : {mark >> 16:x}:{mark | 0x8000:x}" for mark in FIREWALL_MARKS)
        grant = ", ".join(f"{mark >> 16:x}:{mark | 0x8000:x} : {mark:#x}" for mark in FIREWALL_MARKS)
        return f"""
            table bridge model {{
                chain wish {{
                    type filter hook prerouting priority -321;
                    meta mark {ASKS_FIREWALL:#x}-0xffffffff meta priority set meta mark map {{ {wish} }} meta mark set 0
                }}
                chain grant {{
                    type filter hook prerouting priority -315;
                    meta priority != 0 meta mark set meta priority map {{ {grant} }}
                }}
            }}
            table inet silence {{
                chain everything {{ type filter hook prerouting priority -450; policy drop; }}
            }}
        """

    def become(self, mac, addresses):
        if mac != self.mac:
            run(f"ip link set {BRIDGE} address {mac}")
            self.mac = mac
        if addresses != self.addresses:
            lines = [f"addr flush dev {BRIDGE}"] + [f"addr add {address}/32 dev {BRIDGE}" for address in addresses]
            run("ip -batch -", "\n".join(lines) + "\n")
            self.addresses = addresses

    @staticmethod
    def forget(wire):
        """What came meanwhile is what the machine says of its own accord."""
        for _ in arrivals(wire, None):
            pass

    def send(self, wire, frame, mark, partial):
        wire.setsockopt(socket.SOL_SOCKET, SO_MARK, struct.pack("<I", mark))
        header = bytes(VNET_HEADER.size)
        if partial:
            transport = 14 + 4 * (frame[14] & 15)
            header = VNET_HEADER.pack(VNET_NEEDS_CHECKSUM, 0, 0, 0, transport, 16)
        wire.send(header + frame)

    def pre_routing(self, port, frame, mark, partial):
        """What the bridge let pass: (frame, mark, type) or None."""
        self.forget(self.coming_up)
        self.send(self.senders[port], frame, mark, partial)
        seen = list(arrivals(self.coming_up, False))
        if len(seen) > 1:
            raise RuntimeError(f"{frame.hex()} into {port} came up as {[(one.hex(), kind) for one, _, kind in seen]}")
        return seen[0] if seen else None

    def post_routing(self, port, frame, mark, partial):
        self.lead(frame[:6], port)
        self.forget(self.leaving[port])
        self.send(self.own, frame, mark, partial)
        seen = list(arrivals(self.leaving[port], True))
        if len(seen) != 1:
            raise RuntimeError(f"a frame left {len(seen)} times")
        return seen[0]

    def lead(self, mac, port):
        """Frames to this station leave through this port."""
        if self.ways.get(mac) != port:
            index = socket.if_nametoindex(port)
            neighbour = struct.pack("<BxHiHBB", AF_BRIDGE, 0, index, NUD_NOARP, NTF_MASTER, 0)
            address = struct.pack("<HH6s2x", 10, NDA_LLADDR, mac)
            head = struct.pack("<IHHII", 16 + len(neighbour) + len(address), RTM_NEWNEIGH, NLM_REPLACE, 1, 0)
            self.netlink.send(head + neighbour + address)
            (answer,) = struct.unpack_from("<i", self.netlink.recv(4096), 16)
            if answer:
                raise OSError(-answer, f"a way for {mac.hex()}")
            self.ways[mac] = port


class Player:
    """One machine; each sequence begins with a module that is not loaded."""

    def __init__(self, ports, module_file):
        self.bridge = Bridge(ports)
        self.module_file = module_file
        self.log = KernelLog()
        self.device = None
        self.seconds, self.ticks, self.ticks_at_load, self.loaded_at = EPOCH, 0, 0, time.monotonic()
        # The first load of a foreign module has a line of its own.
        self.do_load(None)
        self.end()

    def play(self, steps):
        self.seconds, self.ticks, self.ticks_at_load, self.loaded_at = EPOCH, 0, 0, time.monotonic()
        results = []
        try:
            for step in steps:
                self.set_clock()
                result = getattr(self, "do_" + step["op"])(step)
                result["log"] = self.log.take()
                results.append(result)
        finally:
            self.end()
        return results

    def end(self):
        if self.device is not None:
            os.close(self.device)
            self.device = None
        if os.path.isdir("/sys/module/" + MODULE):
            self.do_unload(None)
        self.log.take()

    def set_clock(self):
        passed = time.monotonic() - self.loaded_at + (self.ticks_at_load + FRACTION) / TICKS_PER_SECOND
        time.clock_settime(time.CLOCK_REALTIME, self.seconds + passed)

    def do_device(self, step):
        if step["name"] == BRIDGE:
            self.bridge.become(":".join(re.findall("..", step["mac"])), step["ipv4"])
        return {}

    def do_clock(self, step):
        self.seconds += step["seconds"]
        return {}

    def do_ticks(self, step):
        self.ticks += step["ticks"]
        # Loading took a moment itself.
        end = self.loaded_at + (self.ticks - self.ticks_at_load) / TICKS_PER_SECOND
        time.sleep(max(0, end - time.monotonic()))
        return {}

    def wait_for_the_wheel(self):
        """Sleeps until the tick at which a thread that begins to sleep wakes after exactly TickingKernel.PERIOD."""
        with open("/proc/timer_list", encoding="ascii") as file:
            jiffies = int(re.search(r"^jiffies: (\d+)$", file.read(), re.MULTILINE)[1])
        time.sleep((WHEEL - jiffies % WHEEL) / TICKS_PER_SECOND)

    def do_load(self, _step):
        self.wait_for_the_wheel()
        self.loaded_at, self.ticks_at_load = time.monotonic(), self.ticks
        self.set_clock()
        with open(self.module_file, "rb") as file:
            result = result_of(libc.syscall, FINIT_MODULE, file.fileno(), b"", 0)
        if result:
            return {"result": result}
        while not os.path.exists(DEVICE):
            time.sleep(0.001)
        # The thread makes its first pass now, and not when the log has become louder.
        time.sleep(0.05)
        return {"result": 0}

    def do_unload(self, _step):
        result = result_of(libc.syscall, DELETE_MODULE, MODULE.encode(), os.O_NONBLOCK)
        # Busy is busy, whatever the kernel calls it.
        return {"result": -errno.EBUSY if result == -errno.EAGAIN else result}

    def do_open(self, _step):
        try:
            self.device = os.open(DEVICE, os.O_RDWR)
        except OSError as error:
            return {"result": -error.errno}
        return {"result": 0}

    def do_release(self, _step):
        os.close(self.device)
        self.device = None
        return {"result": 0}

    def do_ioctl(self, step):
        number = step["command"] & 0xFFFFFFFF
        if "record" not in step:
            return {"result": result_of(libc.ioctl, self.device, number, step["argument"])}
        buffer = CallerBuffer(step, bytes.fromhex(step["record"]))
        result = result_of(libc.ioctl, self.device, number, buffer.address)
        return {"result": result, "record": buffer.take().hex()}

    def do_pre(self, step):
        frame, mark = bytes.fromhex(step["frame"]), step.get("mark", 0)
        if step.get("firewall_mark") is not None:
            mark = ASKS_FIREWALL | step["firewall_mark"]
        seen = self.bridge.pre_routing(step["device"], frame, mark, step.get("checksum") == "partial")
        if seen is None:
            # What became of the packet's other parts nobody can see.
            return {"verdict": 0}
        seen_frame, mark, kind = seen
        result = {"verdict": 1, "mark": mark, "frame": seen_frame.hex()}
        if not is_for_bridge(frame):
            result["type"] = self.kind(kind)
        return result

    def do_post(self, step):
        frame, mark, _ = self.bridge.post_routing(
            step["device"], bytes.fromhex(step["frame"]), step.get("mark", 0), step.get("checksum") == "partial")
        return {"verdict": 1, "mark": mark, "type": OTHER_HOST, "frame": frame.hex()}

    @staticmethod
    def kind(kind):
        # The kernel tells frames to all and to groups apart from frames to another host; the module does not.
        return PACKET_HOST if kind == PACKET_HOST else OTHER_HOST

    @contextlib.contextmanager
    def summary(self, flags):
        file = os.open(SUMMARY, flags)
        yield file
        os.close(file)

    def do_proc_write(self, step):
        text = bytes.fromhex(step["text"])
        buffer = CallerBuffer(step, text)
        with self.summary(os.O_WRONLY) as file:
            result = result_of(libc.write, file, buffer.address, len(text))
        buffer.take()
        return {"result": result}

    def do_proc_read(self, step):
        length, position = step["length"], step.get("position", 0)
        buffer = CallerBuffer(step, bytes(length))
        with self.summary(os.O_RDONLY) as file:
            os.lseek(file, position, os.SEEK_SET)
            result = result_of(libc.read, file, buffer.address, length)
            after = os.lseek(file, 0, os.SEEK_CUR)
        return {"result": result, "position": after, "bytes": buffer.take().hex()}


def is_for_bridge(frame):
    """Such a frame's type is the bridge's doing."""
    return frame[:6] in (frames.AP_MAC, frames.MOVED_AP_MAC)


def seen_by_player(step, result):
    """A model's result, less what a real machine does not show."""
    if step["op"] != "pre":
        return result
    result = dict(result)
    if result["verdict"] == 0:
        return {"verdict": 0, "log": result["log"]}
    if is_for_bridge(bytes.fromhex(step["frame"])):
        del result["type"]
    return result
