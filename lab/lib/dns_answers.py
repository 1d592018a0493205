"""Sends DNS answers that nobody asked for, as full as a packet allows.

usage: dns_answers.py FROM TO NAME TTL ADDRESS|xCOUNT...

xCOUNT stands for COUNT made-up addresses, always the same ones: 11.0.0.1, 12.0.0.1 ... 210.0.0.1, 11.1.0.1 ...
"""

import socket
import struct
import sys

RECORDS = 85  # in 1,500 bytes, with a name of ordinary length
FIRST_OCTETS = range(11, 211)


def made_up(number):
    rest, first = divmod(number, len(FIRST_OCTETS))
    return bytes([FIRST_OCTETS[first], rest % 256, rest // 256, 1])


def addresses(words):
    for word in words:
        if word.startswith("x"):
            yield from map(made_up, range(int(word[1:])))
        else:
            yield socket.inet_aton(word)


def answer(name, ttl, some):
    labels = b"".join(bytes([len(label)]) + label for label in name.encode().split(b"."))
    header = struct.pack("!6H", 1, 0x8180, 1, len(some), 0, 0)
    records = (b"\xc0\x0c" + struct.pack("!HHIH", 1, 1, ttl, 4) + address for address in some)
    return header + labels + b"\0\0\1\0\1" + b"".join(records)


def main(sender, receiver, name, ttl, *words):
    server = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    # A real server may have the port, too.
    server.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    server.bind((sender, 53))
    wanted = list(addresses(words))
    for first in range(0, len(wanted), RECORDS):
        server.sendto(answer(name, int(ttl), wanted[first:first + RECORDS]), (receiver, 5353))


main(*sys.argv[1:])
