"""Large packets whose checksums and segments are left to be made later, through a redirect and through its undoing.

usage: large_frames.py

The access point has wlan-1-1 (client-1-1, a cable that carries such packets as they are), wlan-1-2 (a tap device whose
other end takes finished segments alone) and wlan-1-3 (client-1-3, where the kernel finishes them before the cable); the
portal is on at the first two.
"""

import os
import select
import struct

from frame_bytes import (ACCESS_POINT_MAC, CLIENT_PORT, ETHERNET, GATEWAY_MAC, TCP, change_frame, good_frame,
                         has_right_sums, ones_sum, pseudo_header, redirected, undone)
from frame_wire import (VNET_GSO_NONE, VNET_GSO_TCPV4, VNET_HEADER, VNET_NEEDS_CHECKSUM, Listener, Sender, TapSender,
                        stay_on_one_processor, wait_readable)

# A segment and the longest headers fit an Ethernet frame.
SEGMENT = 1400
CLIENT_MAC = bytes.fromhex("020000010101")
# Nobody has it, so the bridge floods what is sent there: the ports get clones.
NOBODY_MAC = bytes.fromhex("020008000001")
DATA = 20000


def unfinished(frame):
    """The frame with nothing but the pseudo header's sum where its TCP checksum belongs."""
    start = ETHERNET + 4 * (frame[ETHERNET] & 15)
    pseudo = pseudo_header(frame[26:30], frame[30:34], TCP, len(frame) - start)
    return frame[:start + 16] + struct.pack("!H", ones_sum(pseudo)) + frame[start + 18:]


def promise(frame, segment=SEGMENT, header_bytes=None):
    """What the sender says of it: complete the checksum and, if it is large, cut it."""
    start = ETHERNET + 4 * (frame[ETHERNET] & 15)
    large = len(frame) - start - 20 > segment
    kind = (VNET_GSO_TCPV4, segment) if large else (VNET_GSO_NONE, 0)
    return (VNET_NEEDS_CHECKSUM, kind[0], start + 20 if header_bytes is None else header_bytes, kind[1], start, 16)


def expect(what, wanted, got):
    if wanted != got:
        raise SystemExit(f"{what}: wanted {wanted!r:.300}\n    got {got!r:.300}")


def segments_of(whole):
    header = ETHERNET + 4 * (whole[ETHERNET] & 15) + 20
    return max(1, -(-(len(whole) - header) // SEGMENT))


def arrivals(listener, belongs, what, count=1):
    """All that came of what was sent, which is `count` packets; one too many fails the next call."""
    found = []
    while len(found) < count:
        if not wait_readable(listener, 20):
            raise SystemExit(f"{what}: {len(found)} packets came, not {count}")
        found += [(frame, vnet) for frame, _, vnet in listener.arrivals() if belongs(frame)]
    return found


def expect_whole(what, found, frame, said):
    """One packet, as it was but for the rewrite, and with the same promise."""
    expect(f"{what}: packets", [frame[:54].hex()], [got[:54].hex() for got, _ in found])
    got, vnet = found[0]
    expect(f"{what}: bytes", frame.hex(), got.hex())
    flags, kind, _, segment, start, offset = vnet
    expect(f"{what}: promise", (said[0], said[1], said[3], said[4], said[5]), (flags & 1, kind & 0x7F, segment, start, offset))


def expect_finished(what, found, whole):
    """Segments with right checksums that together are the packet `whole`, which is finished itself."""
    header = ETHERNET + 4 * (whole[ETHERNET] & 15) + 20
    data = b""
    first_sequence, = struct.unpack_from("!I", whole, header - 16)
    expect(f"{what}: segments", segments_of(whole), len(found))
    for frame, vnet in found:
        expect(f"{what}: left to be done", (0, 0), (vnet[0] & 1, vnet[1]))
        if not has_right_sums(frame):
            raise SystemExit(f"{what}: wrong checksum: {frame[:80].hex()}")
        expect(f"{what}: addresses and ports", whole[:12] + whole[26:header - 16], frame[:12] + frame[26:header - 16])
        expect(f"{what}: sequence", first_sequence + len(data), struct.unpack_from("!I", frame, header - 16)[0])
        data += frame[header:]
    expect(f"{what}: data", whole[header:], data)


class Tap:
    """The tap device's other end: what leaves the bridge by its port is read here."""

    def __init__(self, device):
        self.sender = TapSender(device, fragments=False, vnet=True)

    def arrivals(self, belongs, what, count):
        found = []
        while len(found) < count:
            if not select.select([self.sender.file], [], [], 20)[0]:
                raise SystemExit(f"{what}: {len(found)} packets came, not {count}")
            data = os.read(self.sender.file, 70000)
            if belongs(data[VNET_HEADER.size:]):
                found.append((data[VNET_HEADER.size:], VNET_HEADER.unpack(data[:VNET_HEADER.size])))
        return found


def request(data, *changes):
    frame = good_frame("tcp/203.0.113.10/80")
    frame = frame[:6] + CLIENT_MAC + frame[12:]
    for change in (*changes, f"data={data}"):
        frame = change_frame(frame, change)
    return frame


def reply(data, *changes):
    frame = good_frame(f"reply/10081/{CLIENT_PORT}")
    frame = NOBODY_MAC + ACCESS_POINT_MAC + frame[12:]
    for change in (*changes, f"data={data}"):
        frame = change_frame(frame, change)
    return frame


# Each: its name, what is sent, its promise's changes, and the forms of sending.
REQUESTS = [
    ("SYN", request(0), {}, ("linear", "ring:38", "ring:40")),
    ("segment", request(1000, "flags=18"), {}, ("linear", "ring:38", "ring:40", "ring:41")),
    ("20,000 bytes", request(DATA, "flags=18"), {}, ("linear",)),
    ("20,000 bytes behind options", request(DATA, "flags=18", "options=10"), {}, ("linear",)),
    ("20,000 bytes, a header of 14 claimed", request(DATA, "flags=18"), {"header_bytes": 14}, ("linear",)),
    ("9,000 bytes in pieces", request(9000, "flags=18"), {}, ("linear", "ring:40", "ring:60")),
    ("segments of 8 bytes", request(40, "flags=18"), {"segment": 8}, ("linear",)),
]


def redirects(way_in, forms_allowed, redirect_port, port, at_access_point):
    # The client's own kernel speaks, too: of its IPv6 addresses.
    def from_client(frame):
        return frame[6:12] == CLIENT_MAC and frame[12:14] != b"\x86\xdd"

    count = 0
    for name, whole, said_otherwise, forms in REQUESTS:
        for form in forms:
            if form.partition(":")[0] not in forms_allowed:
                continue
            frame, said = unfinished(whole), promise(whole, **said_otherwise)
            what = f"{name} ({form}) to port {redirect_port}"
            way_in.send(form, frame, said)
            wanted = unfinished(redirected(whole, redirect_port))
            expect_whole(what, arrivals(at_access_point, from_client, what), wanted, said)
            expect_whole(f"{what}, as its port's listener holds it", arrivals(port, from_client, what), frame, said)
            count += 1
    print(f"    {count} requests were redirected to port {redirect_port}")


def main():
    stay_on_one_processor()
    client = Sender("client-1-1", "eth0")
    access_point = Sender("", "br0")
    tap = Tap("wlan-1-2")
    at_access_point = Listener("", "br0")

    redirects(client, ("linear", "ring"), 10081, Listener("", "wlan-1-1"), at_access_point)
    redirects(tap.sender, ("linear",), 10082, Listener("", "wlan-1-2"), at_access_point)

    on_bridge = Listener("", "br0", outgoing=True)
    whole_at, finished_at = Listener("client-1-1", "eth0"), Listener("client-1-3", "eth0")

    def to_nobody(frame):
        return frame[:6] == NOBODY_MAC

    replies = [("handshake", reply(0, "flags=12"), ("linear", "ring:38", "ring:40")),
               ("segment", reply(1000), ("linear", "ring:38", "ring:40", "ring:41")),
               ("20,000 bytes", reply(DATA), ("linear",)),
               ("20,000 bytes behind options", reply(DATA, "flags=10", "options=10"), ("linear",)),
               ("9,000 bytes in pieces", reply(9000), ("linear", "ring:40", "ring:60"))]
    done = 0
    for name, whole, forms in replies:
        for form in forms:
            frame, said = unfinished(whole), promise(whole)
            access_point.send(form, frame, said)
            seen = undone(whole, "203.0.113.10", 80, GATEWAY_MAC)
            what, count = f"reply, {name} ({form})", segments_of(whole)
            expect_finished(f"{what}, for client-1-3", arrivals(finished_at, to_nobody, what, count), seen)
            expect_finished(f"{what}, for the tap device", tap.arrivals(to_nobody, what, count), seen)
            expect_whole(f"{what}, for client-1-1", arrivals(whole_at, to_nobody, what), unfinished(seen), said)
            expect_whole(f"{what}, on the bridge", arrivals(on_bridge, to_nobody, what), frame, said)
            done += 1
    print(f"    {done} replies were undone for three ports each")
    for listener in (at_access_point, on_bridge, whole_at, finished_at):
        expect("frames that a listener lost", 0, listener.lost())


main()
