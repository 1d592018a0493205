"""DNS messages: what servers answer, and what nobody should."""

import struct

import frames
import names

A, CNAME, TXT, AAAA, OPT = 1, 5, 16, 28, 41
HEADER = 12
TO_QUESTION = b"\xc0\x0c"
LIFETIMES = [0, 1, 5, 60, 300, 86400, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF]


def labels(name):
    """A name as the wire has it."""
    wire = b""
    for label in name.split(b".") if name else []:
        wire += bytes([len(label)]) + label
    return wire + b"\0"


def pointer(offset):
    return struct.pack(">H", 0xC000 | offset & 0x3FFF)


def record(owner, kind, lifetime, data, length=None):
    return owner + struct.pack(">HHIH", kind, 1, lifetime, len(data) if length is None else length & 0xFFFF) + data


def alias(cast, place):
    """An alias record that begins at `place`, and the owner for what follows it."""
    name = labels(cast.name())
    target = name[:-1] + TO_QUESTION if cast.rarely(2) else name
    return record(TO_QUESTION, CNAME, 300, target), pointer(place + len(TO_QUESTION) + 10)


def chain(cast, place):
    """Pointers to pointers, hidden in a text, and an owner that follows some of them."""
    links = cast.dice.choice([2, 30, 31, 32, 33, 40])
    start = place + len(TO_QUESTION) + 10
    end = labels(cast.dice.choice([b"z", b"z.example", b"z" * 60]))
    data = end
    at = start
    for _ in range(links):
        # Each link a label longer, now and then.
        link = (b"\x01y" if cast.rarely(8) else b"") + pointer(at)
        at = start + len(data)
        data += link
    if cast.rarely(6):
        data = pointer(start) + data[2:]
    return record(TO_QUESTION, TXT, 300, data), pointer(at)


def odd_record(cast, owner, lifetime, data):
    """A record that is no address, or says something else than it holds."""
    return cast.dice.choice(
        [
            lambda: record(owner, AAAA, lifetime, bytes(16)),
            lambda: record(owner, TXT, lifetime, b"\x03abc"),
            lambda: record(owner, OPT, lifetime, b""),
            lambda: record(owner, A, lifetime, data[:3]),
            lambda: record(owner, A, lifetime, data + b"more"),
            lambda: record(owner, A, lifetime, b""),
            lambda: record(owner, A, lifetime, data, length=cast.dice.choice([0, 3, 5, 0xFFFF, 0x8000])),
            # The way to the next record is counted modulo 65536: here, or a little back, or a little on.
            lambda: record(
                owner, A, lifetime, data, length=65536 - 10 - len(owner) + cast.dice.choice([0, 0, -1, -2, -16, 4, 16])
            ),
            lambda: record(labels(names.long_name(cast.dice)), A, lifetime, data),
            lambda: record(labels(names.long_name(cast.dice))[:-1] + TO_QUESTION, A, lifetime, data),
            lambda: record(pointer(cast.dice.choice([0, 11, 12, 13, 60, 500, 0x3FFF])), A, lifetime, data),
        ]
    )()


def answer(cast, name, addresses):
    """An answer as a server would give it, with an alias now and then and pointers nearly always."""
    dice = cast.dice
    message = bytearray(labels(name) + struct.pack(">HH", dice.choice([A] * 20 + [AAAA, 65, 255]), 1))
    owner = TO_QUESTION
    count = 0
    if cast.rarely(6):
        one, owner = (alias if cast.rarely(2) else chain)(cast, HEADER + len(message))
        message += one
        count += 1
    for text in addresses:
        data = frames.address(text)
        make = odd_record if cast.rarely(7) else lambda _, *rest: record(rest[0], A, *rest[1:])
        message += make(cast, owner if not cast.rarely(10) else labels(cast.name()), dice.choice(LIFETIMES), data)
        count += 1
    return struct.pack(">HHHHHH", 0x1234, 0x8180, 1, count, 0, 0) + bytes(message)


def many(name, first, count, lifetime=600):
    """So many different addresses, spread over all buckets."""
    message = struct.pack(">HHHHHH", 1, 0x8180, 1, count, 0, 0) + labels(name) + struct.pack(">HH", A, 1)
    head = record(TO_QUESTION, A, lifetime, b"", length=4)
    for number in range(first, first + count):
        message += head + bytes([number & 0xFF, number >> 8 & 3, number >> 10 & 0xFF, 7])
    return message


def one_bucket(name, count):
    """Addresses that are all filed in one bucket."""
    message = struct.pack(">HHHHHH", 1, 0x8180, 1, count, 0, 0) + labels(name) + struct.pack(">HH", A, 1)
    for number in range(count):
        message += record(TO_QUESTION, A, number % 4, bytes([203, 4, number, 1]))
    return message


def hostile(cast, message):
    """One thing about the message becomes a lie, or is missing."""
    dice = cast.dice
    data = bytearray(message)
    kind = dice.randrange(10)
    if kind <= 1:
        return bytes(data[: dice.randrange(len(data) + 1)])
    if kind == 2:
        data[2:4] = struct.pack(">H", dice.choice([0x0100, 0x8183, 0x8380, 0x8182, 0xFFFF, 0x8185, 0x818F, 0]))
    elif kind == 3:
        data[4:6] = struct.pack(">H", dice.choice([0, 2, 65535]))
    elif kind == 4:
        data[6:8] = struct.pack(">H", dice.choice([0, 1, 2, 5, 65535]))
    elif kind == 5 and len(data) > HEADER:
        # A pointer somewhere: to itself, to another, ahead, beyond.
        at = dice.randrange(HEADER, len(data))
        data[at : at + 2] = pointer(dice.choice([at, 0, 11, 12, at + 1, len(data) - 1, len(data), 0x3FFF, at ^ 2]))
    elif kind == 6:
        data[dice.randrange(len(data))] = dice.choice([0x40, 0x80, 0xBF, 0xC0, 0xFF, 0x3F, 0, 1, dice.randrange(256)])
    elif kind == 7:
        data += bytes(dice.randrange(256) for _ in range(dice.randrange(20)))
    elif kind == 8:
        # Cut inside the last record's fixed fields or data.
        del data[max(0, len(data) - dice.randrange(1, 16)) :]
    else:
        del data[dice.randrange(len(data)) :]
        data += dice.choice([b"\x05abc", b"\xc0", b"\x3f" + b"q" * 20, b"\xff"])
    return bytes(data)
