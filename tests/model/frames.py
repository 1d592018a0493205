"""Frames that a client, a server or somebody hostile could send."""

import struct

ROUTER_MAC = bytes.fromhex("0200000000fe")
AP_MAC = bytes.fromhex("02aa00000001")
MOVED_AP_MAC = bytes.fromhex("02aa00000002")
CLIENT_MACS = [bytes([2, 0, 0, 1, 1, number]) for number in range(1, 6)]
ODD_MACS = [bytes(6), bytes.fromhex("0102aa000001"), b"\xff" * 6, bytes.fromhex("02ff00ff00ff")]

AP = "192.168.1.1"
MOVED_AP = "192.168.1.2"
ROUTER = "192.168.1.254"
SOCIAL_LOGIN = "2.2.2.2"
DNS_FILTER = "4.4.4.4"
LOGOUT = "1.2.3.4"
CLIENTS = ["192.168.1.100", "192.168.1.101", "10.0.0.5"]
SERVERS = ["203.0.113.10", "203.0.113.11", "198.51.100.7", "192.0.2.1"]
PRIVATE = ["10.1.2.3", "172.16.0.1", "172.31.255.255", "192.168.7.7"]
# In the first bucket of the cache, and in the last.
LAST_BUCKETS = ["0.4.0.1", "0.8.0.1", "255.255.1.1", "255.3.1.1"]
EDGES = [
    "172.15.255.255",
    "172.32.0.1",
    "11.0.0.1",
    "9.255.255.255",
    "192.167.1.1",
    "192.169.0.1",
    "0.0.0.0",
    "255.255.255.255",
]

FIN, SYN, RST, PSH, ACK = 1, 2, 4, 8, 16


def address(text):
    return bytes(map(int, text.split(".")))


def ones_sum(data, start=0):
    if len(data) % 2:
        data += b"\0"
    total = start + sum(struct.unpack(f">{len(data) // 2}H", data))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return total


def pseudo_sum(source, destination, protocol, length):
    return ones_sum(address(source) + address(destination) + struct.pack(">HH", protocol, length))


def tcp(source, destination, source_port, destination_port, flags, payload=b"", *, partial=False, options=b""):
    offset = 5 + len(options) // 4
    segment = (
        struct.pack(">HHIIBBHHH", source_port, destination_port, 1000, 2000, offset << 4, flags, 0xFFFF, 0, 0)
        + options
        + payload
    )
    start = pseudo_sum(source, destination, 6, len(segment))
    checksum = start if partial else ones_sum(segment, start) ^ 0xFFFF
    return segment[:16] + struct.pack(">H", checksum) + segment[18:]


def udp(source, destination, source_port, destination_port, payload=b"", length=None):
    length = len(payload) + 8 if length is None else length
    datagram = struct.pack(">HHHH", source_port, destination_port, length & 0xFFFF, 0) + payload
    checksum = ones_sum(datagram, pseudo_sum(source, destination, 17, len(datagram))) ^ 0xFFFF
    return datagram[:6] + struct.pack(">H", checksum or 0xFFFF) + datagram[8:]


def ipv4(source, destination, protocol, payload, *, options=b"", fragment=0, total=None, version=4, words=None):
    words = 5 + len(options) // 4 if words is None else words
    total = 20 + len(options) + len(payload) if total is None else total
    header = struct.pack(">BBHHHBBH", version << 4 | words, 0, total & 0xFFFF, 7, fragment, 64, protocol, 0)
    header += address(source) + address(destination) + options
    return header[:10] + struct.pack(">H", ones_sum(header) ^ 0xFFFF) + header[12:] + payload


def ethernet(destination, source, kind, payload):
    return destination + source + struct.pack(">H", kind) + payload


def arp(source):
    return ethernet(b"\xff" * 6, source, 0x0806, bytes.fromhex("0001080006040001") + source + bytes(14))


def ipv6(destination, source, payload, next_header, looks_like):
    """With a protocol and addresses at the places where IPv4 has them."""
    first, second = looks_like
    header = struct.pack(">IHBB", 6 << 28, len(payload), next_header, 64) + b"\x20" + bytes([next_header, 0, 0])
    header += address(first) + address(second) + bytes(20)
    return ethernet(destination, source, 0x86DD, header + payload)


def mutate(dice, frame):
    """One thing about the frame becomes a lie, or is missing."""
    kind = dice.randrange(12)
    data = bytearray(frame)
    if kind <= 3 or len(data) < 35:
        # Around where a field begins more often than elsewhere.
        end = dice.choice([0, 5, 6, 11, 12, 13, 14, 15, 20, 23, 24, 27, 30, 33, 34, 35, 36, 37, 38, 47, 48, 51, 52])
        return (
            bytes(data[: min(end, len(data))]) if dice.random() < 0.7 else bytes(data[: dice.randrange(len(data) + 1)])
        )
    if kind == 4:
        data[14] = data[14] & 0xF0 | dice.randrange(16)
    elif kind == 5:
        data[14] = dice.randrange(16) << 4 | data[14] & 15
    elif kind == 6:
        data[16:18] = struct.pack(">H", dice.choice([0, 19, 20, 27, 28, 29, 0xFFFF, len(data)]))
    elif kind == 7:
        data[20:22] = struct.pack(">H", dice.choice([0x2000, 0x0001, 0x2001, 0x1FFF, 0x4000, 0x8000]))
    elif kind == 8:
        data[12:14] = struct.pack(">H", dice.choice([0x8100, 0x86DD, 0x0806, 0x888E, 0x886B, 0x886C, 0x0004, 0x0800]))
    elif kind == 9:
        data[12:12] = bytes.fromhex("81000064")
    elif kind == 10 and len(data) >= 40:
        data[38:40] = struct.pack(">H", dice.choice([0, 7, 8, 9, 12, 20, 21, 0x8000, 0xFFFF]))
    else:
        data[dice.randrange(len(data))] = dice.randrange(256)
    return bytes(data)
