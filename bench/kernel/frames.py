"""Ethernet frames with IPv4 and UDP or TCP, checksums right, 64 bytes long like most acknowledgements on a wire."""

import socket
import struct

UDP, TCP = 17, 6
SYN, ACK, FIN = 0x02, 0x10, 0x01
PAYLOAD_TO_FILL = {UDP: 22, TCP: 10}


def mac(text):
    return bytes.fromhex(text.replace(":", ""))


def internet_checksum(data):
    total = sum(struct.unpack(f"!{len(data) // 2}H", data))
    while total >> 16:
        total = (total & 0xffff) + (total >> 16)
    return ~total & 0xffff


def frame(source_mac, destination_mac, source, destination, protocol, flags=ACK):
    """source and destination are pairs of a dotted quad and a port."""
    addresses = socket.inet_aton(source[0]) + socket.inet_aton(destination[0])
    payload = bytes(PAYLOAD_TO_FILL[protocol])
    if protocol == UDP:
        length = 8 + len(payload)
        head, tail = struct.pack("!HHH", source[1], destination[1], length), payload
    else:
        head = struct.pack("!HHIIBBH", source[1], destination[1], 1000, 0, 5 << 4, flags, 8192)
        tail = struct.pack("!H", 0) + payload
        length = 20 + len(payload)
    checksum = internet_checksum(addresses + struct.pack("!HH", protocol, length) + head + bytes(2) + tail)
    header = struct.pack("!BBHHHBB", 0x45, 0, 20 + length, 1, 0x4000, 64, protocol)
    header += struct.pack("!H", internet_checksum(header + bytes(2) + addresses)) + addresses
    return destination_mac + source_mac + b"\x08\x00" + header + head + struct.pack("!H", checksum) + tail
