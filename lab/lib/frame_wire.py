"""Frames into a bridge in every form that a process can give them, and what comes out of it where.

Ways in, all as a packet of exactly these bytes:
    linear      a packet socket's frame
    ring:N      a transmit ring's: N bytes behind the Ethernet header are linear, all others lie in page fragments
    frags:N     a tap device's, in fragments: N bytes linear, the others in one fragment
    crumbs:N    the same with the 15 bytes behind them in a fragment each
Through a tap device "linear" is one piece as well. Rings of old kernels give "ring:0" alone, tap devices of old kernels
nothing in fragments: a sender says what it gives.

One process holds all sockets, in whatever name space they live, and stays on one processor, so that a frame which is
sent last arrives last.
"""

import contextlib
import ctypes
import errno
import fcntl
import mmap
import os
import select
import socket
import struct
import time

ETH_P_ALL = 3
SOL_PACKET = 263
PACKET_AUXDATA, PACKET_VERSION, PACKET_TX_RING, PACKET_VNET_HDR, PACKET_STATISTICS = 8, 10, 13, 15, 6
SO_RCVBUFFORCE, SO_SNDBUFFORCE = 33, 32
TPACKET_V2, TPACKET2_DATA = 1, 32
TP_STATUS_SEND_REQUEST, TP_STATUS_VLAN_VALID = 1, 0x10
TUNSETIFF, TUNGETFEATURES = 0x400454CA, 0x800454CF
IFF_TAP, IFF_NO_PI, IFF_VNET_HDR, IFF_NAPI, IFF_NAPI_FRAGS = 2, 0x1000, 0x4000, 0x10, 0x20
VNET_HEADER = struct.Struct("<BBHHHH")
VNET_NEEDS_CHECKSUM = 1
VNET_GSO_NONE, VNET_GSO_TCPV4 = 0, 1
CLONE_NEWNET = 0x40000000
PACKET_OUTGOING = 4

libc = ctypes.CDLL(None, use_errno=True)


@contextlib.contextmanager
def network_of(name):
    """What opens a socket inside, opens it in this name space; "" is the access point's own."""
    if not name:
        yield
        return
    home = os.open("/proc/self/ns/net", os.O_RDONLY)
    there = os.open(f"/run/netns/{name}", os.O_RDONLY)
    try:
        if libc.setns(there, CLONE_NEWNET):
            raise OSError(ctypes.get_errno(), f"name space {name}")
        yield
    finally:
        if libc.setns(home, CLONE_NEWNET):
            raise OSError(ctypes.get_errno(), "the way home")
        os.close(home)
        os.close(there)


def packet_socket(namespace, device, protocol):
    with network_of(namespace):
        wire = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, 0)
        wire.setsockopt(SOL_PACKET, PACKET_VNET_HDR, 1)
        wire.setsockopt(SOL_PACKET, PACKET_VERSION, TPACKET_V2)
        wire.setsockopt(SOL_PACKET, PACKET_AUXDATA, 1)
        wire.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, 64 << 20)
        wire.setsockopt(socket.SOL_SOCKET, SO_SNDBUFFORCE, 16 << 20)
        wire.bind((device, protocol))
    return wire


class Listener:
    """Everything that a device receives or, with `outgoing`, sends; held as the kernel queued it until it is read."""

    def __init__(self, namespace, device, outgoing=False):
        self.wire = packet_socket(namespace, device, ETH_P_ALL)
        self.outgoing = outgoing

    def arrivals(self):
        """(frame, "vlan:ID" or "", vnet header) of each that is queued.  The frame is whole, up to 64 KiB."""
        while True:
            try:
                data, control, _, sender = self.wire.recvmsg(70000, 256, socket.MSG_DONTWAIT)
            except BlockingIOError:
                return
            if (sender[2] == PACKET_OUTGOING) != self.outgoing:
                continue
            tag = ""
            for _, kind, auxiliary in control:
                status, _, _, _, _, tci, tpid = struct.unpack("<IIIHHHH", auxiliary[:20])
                if kind == PACKET_AUXDATA and status & TP_STATUS_VLAN_VALID:
                    tag = f"{tpid:04x}:{tci}"
            yield data[VNET_HEADER.size:], tag, VNET_HEADER.unpack(data[:VNET_HEADER.size])

    def lost(self):
        return struct.unpack("<II", self.wire.getsockopt(SOL_PACKET, PACKET_STATISTICS, 8))[1]


class Sender:
    """Through a packet socket on a device."""

    SLOTS, SLOT_BYTES = 128, 16384

    def __init__(self, namespace, device):
        self.namespace, self.device = namespace, device
        self.plain = packet_socket(namespace, device, 0)
        self.ring = None

    def gives(self, form):
        way, _, linear = form.partition(":")
        if way == "ring" and self.ring is None:
            self.open_ring()
        return way == "linear" or (way == "ring" and (linear == "0" or self.ring_takes_promises))

    def open_ring(self):
        self.ring_socket = packet_socket(self.namespace, self.device, 0)
        size = struct.pack("<IIII", self.SLOT_BYTES, self.SLOTS, self.SLOT_BYTES, self.SLOTS)
        self.ring_takes_promises = True
        try:
            self.ring_socket.setsockopt(SOL_PACKET, PACKET_TX_RING, size)
        except OSError as error:
            # An older ring takes frames alone, and leaves linear what every device asks for: the Ethernet header.
            if error.errno != errno.EINVAL:
                raise
            self.ring_takes_promises = False
            self.ring_socket.setsockopt(SOL_PACKET, PACKET_VNET_HDR, 0)
            self.ring_socket.setsockopt(SOL_PACKET, PACKET_TX_RING, size)
        self.ring = mmap.mmap(self.ring_socket.fileno(), self.SLOTS * self.SLOT_BYTES)
        self.slot = 0

    def send(self, form, frame, vnet=(0, 0, 0, 0, 0, 0)):
        way, _, linear = form.partition(":")
        if way == "linear":
            self.plain.send(VNET_HEADER.pack(*vnet) + frame)
        elif way == "ring":
            self.send_by_ring(frame, 14 + int(linear), vnet)
        else:
            raise ValueError(f"a packet socket sends no {form}")

    def send_by_ring(self, frame, linear, vnet):
        if self.ring is None:
            self.open_ring()
        if not self.ring_takes_promises and (linear != 14 or any(vnet)):
            raise ValueError("this kernel's transmit rings take no promises")
        at = self.slot * self.SLOT_BYTES
        deadline = time.monotonic() + 20
        while struct.unpack_from("<I", self.ring, at) != (0,):
            # The frame that was here is in some queue still, and its bytes are these.
            if time.monotonic() > deadline:
                raise RuntimeError("a slot of the transmit ring does not become free")
            time.sleep(0.001)
        kind, gso, _, *rest = vnet
        promise = VNET_HEADER.pack(kind, gso, min(linear, len(frame)), *rest) if self.ring_takes_promises else b""
        data = promise + frame
        self.ring[at + TPACKET2_DATA:at + TPACKET2_DATA + len(data)] = data
        struct.pack_into("<II", self.ring, at, TP_STATUS_SEND_REQUEST, len(data))
        try:
            sent = self.ring_socket.send(b"", socket.MSG_DONTWAIT)
        except OSError:
            # The slot stays the ring's next one, and would be sent again with the next frame.
            struct.pack_into("<I", self.ring, at, 0)
            raise
        if sent != len(frame):
            raise RuntimeError(f"the transmit ring sent {sent} bytes of {len(frame)}")
        self.slot = (self.slot + 1) % self.SLOTS


class TapSender:
    """Through a tap device that is there already and a port of the bridge: the process plays the cable's other end."""

    def __init__(self, device, fragments=True, vnet=False):
        self.file = os.open("/dev/net/tun", os.O_RDWR)
        features, = struct.unpack("<I", fcntl.ioctl(self.file, TUNGETFEATURES, bytes(4)))
        self.fragments = fragments and bool(features & IFF_NAPI_FRAGS)
        flags = IFF_TAP | IFF_NO_PI
        flags |= IFF_NAPI | IFF_NAPI_FRAGS if self.fragments else 0
        flags |= IFF_VNET_HDR if vnet else 0
        fcntl.ioctl(self.file, TUNSETIFF, struct.pack("16sH22x", device.encode(), flags))
        self.vnet = vnet
        wait_for_port(device)

    def gives(self, form):
        return form == "linear" or self.fragments

    def send(self, form, frame, vnet=(0, 0, 0, 0, 0, 0)):
        way, _, linear = form.partition(":")
        pieces = [frame]
        if way in ("frags", "crumbs"):
            at = 14 + int(linear)
            ends = [at] if way == "frags" else range(at, at + 16)
            pieces, start = [], 0
            for end in ends:
                pieces.append(frame[start:end])
                start = end
            pieces.append(frame[start:])
            pieces = pieces[:1] + [piece for piece in pieces[1:] if piece]
        elif way != "linear":
            raise ValueError(f"a tap device sends no {form}")
        if self.vnet:
            pieces.insert(0, VNET_HEADER.pack(*vnet))
        os.writev(self.file, pieces)


def wait_for_port(device):
    """A port forwards when its cable is in and the bridge has noticed."""
    deadline = time.monotonic() + 20
    while time.monotonic() < deadline:
        try:
            with open(f"/sys/class/net/{device}/brport/state") as state:
                if state.read().strip() == "3":
                    return
        except OSError:
            pass
        time.sleep(0.05)
    raise RuntimeError(f"port {device} does not forward")


def wait_readable(listener, seconds):
    return bool(select.select([listener.wire], [], [], seconds)[0])


def stay_on_one_processor():
    os.sched_setaffinity(0, {min(os.sched_getaffinity(0))})
