"""The machine that is measured: its devices, the frame source, the control device, and what can be seen of a frame."""

import ctypes
import fcntl
import os
import select
import socket
import struct
import subprocess
import time

ETH_P_ALL = 3
SO_ATTACH_FILTER = 26
MARK_OF_FRAME = 0xfffff014  # where a socket filter finds a packet's mark

RECEIVED, SENT = 0, 1
THREE_HOOKS, POST_ROUTING_HOOK, NO_HOOKS = 7, 4, 0


def run(*command, **options):
    return subprocess.run(command, check=True, text=True, **options)


class FrameSource:
    RUN_FRAMES = 1 << 30 | 56 << 16 | ord("F") << 8 | 1
    SET_HOOKS = ord("F") << 8 | 2
    END_AT = ord("F") << 8 | 3

    def __init__(self):
        self.device = os.open("/dev/frame_source", os.O_RDWR)

    def run(self, device, way, frames, batches, in_batch):
        """Nanoseconds of each batch."""
        size = len(frames[0])
        assert all(len(frame) == size for frame in frames)
        data = ctypes.create_string_buffer(b"".join(frames), size * len(frames))
        times = (ctypes.c_uint64 * batches)()
        record = struct.pack("<16s6IQQ", device.encode(), way, batches, in_batch, len(frames), size, 0,
                             ctypes.addressof(data), ctypes.addressof(times))
        fcntl.ioctl(self.device, self.RUN_FRAMES, record)
        return list(times)

    def set_hooks(self, mask):
        fcntl.ioctl(self.device, self.SET_HOOKS, mask)

    def end_at(self, device):
        fcntl.ioctl(self.device, self.END_AT, socket.if_nametoindex(device))


class Capture:
    """Frames that pass a device and have the given mark."""

    def __init__(self, device, mark):
        self.socket = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, 0)
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 20)
        program = b"".join(struct.pack("<HBBI", *line) for line in (
            (0x20, 0, 0, MARK_OF_FRAME), (0x15, 0, 1, mark), (0x06, 0, 0, 0x40000), (0x06, 0, 0, 0)))
        self.program = ctypes.create_string_buffer(program, len(program))
        self.socket.setsockopt(socket.SOL_SOCKET, SO_ATTACH_FILTER,
                               struct.pack("<H6xQ", 4, ctypes.addressof(self.program)))
        self.socket.bind((device, ETH_P_ALL))

    def frames(self):
        seen = []
        while select.select([self.socket], [], [], 0)[0]:
            seen.append(self.socket.recv(2048))
        return seen

    def close(self):
        self.socket.close()


class ControlDevice:
    """The module's own door for programs; the records are those of include/captive_portal."""

    SET_PORTAL, SET_GARDEN, SET_CLIENTS = 1, 3, 8
    PORTAL_MODE, UPDATE_RULES, ADDRESS_RULE, RULES = 1, 2, 1, 24

    def __init__(self):
        self.device = os.open("/dev/CP_dev", os.O_RDWR)

    def set_portal_mode(self, row, mode):
        fcntl.ioctl(self.device, self.SET_PORTAL, struct.pack("<IiI16x", self.PORTAL_MODE, row, mode))

    @staticmethod
    def client_record(command, interface, address):
        return struct.pack("<III16s16x6s2x", command, 0, 0, interface.encode(), address)

    def add_clients(self, command, interface, macs):
        for address in macs:
            fcntl.ioctl(self.device, self.SET_CLIENTS, self.client_record(command, interface, address))

    def time_of_commands(self, records):
        """Nanoseconds of each. The result of a command is not looked at: one that is refused costs no more than another."""
        ioctl = ctypes.CDLL(None).ioctl
        started = time.perf_counter_ns()
        for record in records:
            ioctl(self.device, self.SET_CLIENTS, record)
        return (time.perf_counter_ns() - started) / len(records)

    def set_address_rules(self, row, networks):
        rules = b"".join(struct.pack("<I4s4s128x", self.ADDRESS_RULE, socket.inet_aton(address), socket.inet_aton(mask))
                         for address, mask in networks)
        record = struct.pack("<IiIi", self.UPDATE_RULES, row, 1, len(networks)) + rules
        record = bytearray(record.ljust(16 + 140 * self.RULES, b"\0"))
        fcntl.ioctl(self.device, self.SET_GARDEN, record)

    def close(self):
        os.close(self.device)


class Counters:
    """What the devices have let out, and what the bridge has handed to its own device."""

    def __init__(self, devices):
        self.files = {device: f"/sys/class/net/{device}/statistics/tx_packets" for device in devices}
        self.files["br0"] = "/sys/class/net/br0/statistics/rx_packets"

    def read(self):
        counts = {}
        for device, file in self.files.items():
            with open(file, encoding="ascii") as content:
                counts[device] = int(content.read())
        return counts


def nft(text):
    run("nft", "-f", "-", input=text)


def load_module(file):
    run("insmod", file)


def unload_module(name):
    run("rmmod", name)
