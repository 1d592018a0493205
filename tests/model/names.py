"""Names and DNS messages: what servers answer, and what nobody should."""

import struct

NAMES = [b"www.example.com", b"example.com", b"cdn.example.net", b"a.b.example.org", b"login.example.org",
         b"social-login.example.com", b"x", b"", b"WWW.example.com", b"deep.er.cdn.example.net", b"captive.example.net",
         b"l" * 63 + b".example.com", b".".join([b"m" * 40] * 4), b"n" * 63 + b"." + b"o" * 63, b"n" * 63 + b"." + b"o" * 62]
PATTERNS = [b"www.example.com", b"*.example.com", b"*", b"*cdn*", b"example.com", b"*.example.*", b"cdn.*.net", b"", b"a*b*c",
            b"*.org", b"www*", b"social-login.example.com", b"**", b"x", b"*example", b"l*", b"*m*m*m", b"*.net*"]
DEFAULT_NAMES = [b"captive.example.net", b"www.example.com", b"", b"x", b"cdn.example.net", b"a.b.example.org"]


def labels(name):
    """A name as the wire has it; a label of more than 255 bytes cannot be said."""
    wire = b""
    for label in name.split(b".") if name else []:
        wire += bytes([len(label) & 255]) + label[:255]
    return wire + b"\0"


def answer(dice, name, addresses, *, kind=1, ttl=None):
    """An answer as a server would give it: an alias now and then, pointers nearly always."""
    question = labels(name) + struct.pack(">HH", kind, 1)
    message = bytearray(question)
    owner = b"\xc0\x0c"
    count = 0
    if dice.random() < 0.2:
        target = labels(dice.choice(NAMES))[:-1] + b"\xc0\x0c" if dice.random() < 0.5 else labels(dice.choice(NAMES))
        message += owner + struct.pack(">HHIH", 5, 1, 300, len(target))
        owner = struct.pack(">H", 0xC000 | 12 + len(message))
        message += target
        count += 1
    for text in addresses:
        life = dice.choice([0, 1, 5, 60, 300, 86400, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF]) if ttl is None else ttl
        data = bytes(map(int, text.split(".")))
        kind_of_record = 1
        if dice.random() < 0.15:
            kind_of_record, data = dice.choice([(28, bytes(16)), (16, b"\x03abc"), (1, data[:3]), (1, data + b"more"), (41, b""), (1, b"")])
        message += (owner if dice.random() < 0.9 else labels(dice.choice(NAMES)))
        message += struct.pack(">HHIH", kind_of_record, 1, life, len(data)) + data
        count += 1
    return struct.pack(">HHHHHH", 0x1234, 0x8180, 1, count, 0, 0) + bytes(message)


def many(name, first, count, ttl=600):
    """Addresses in a row, as many as one datagram can say."""
    message = struct.pack(">HHHHHH", 1, 0x8180, 1, count, 0, 0) + labels(name) + struct.pack(">HH", 1, 1)
    record = b"\xc0\x0c" + struct.pack(">HHIH", 1, 1, ttl, 4)
    return message + b"".join(record + struct.pack(">I", first + number) for number in range(count))


def hostile(dice, message):
    data = bytearray(message)
    kind = dice.randrange(11)
    if kind == 0:
        return bytes(data[: dice.randrange(len(data) + 1)])
    if kind == 1:
        data[2:4] = struct.pack(">H", dice.choice([0x0100, 0x8183, 0x8380, 0x8182, 0xFFFF, 0x8185, 0x818F, 0]))
    elif kind == 2:
        data[4:6] = struct.pack(">H", dice.choice([0, 2, 65535]))
    elif kind == 3:
        data[6:8] = struct.pack(">H", dice.choice([0, 1, 2, 5, 65535]))
    elif kind == 4:
        # A pointer somewhere: to itself, to another, ahead, beyond.
        at = dice.randrange(12, len(data)) if len(data) > 12 else 0
        data[at : at + 2] = struct.pack(">H", 0xC000 | dice.choice([at, 0, 11, 12, at + 1, len(data) - 1, len(data), 0x3FFF, at ^ 2]))
    elif kind == 5:
        # A chain of pointers, each two bytes on, before the end of it.
        start = len(data)
        length = dice.choice([3, 31, 32, 33, 40])
        for step in range(length):
            data += struct.pack(">H", 0xC000 | (start + 2 * (step + 1)) & 0x3FFF)
        data += b"\x01z\x00"
        data[6:8] = struct.pack(">H", struct.unpack(">H", bytes(data[6:8]))[0] + 1 & 0xFFFF)
        data += struct.pack(">HHIH", 1, 1, 60, 4) + b"\xcb\x00\x71\x0a"
    elif kind == 6:
        at = dice.randrange(len(data))
        data[at] = dice.choice([0x40, 0x80, 0xBF, 0xFF, 0x3F, 0, 1])
    elif kind == 7:
        data[dice.randrange(len(data))] = dice.randrange(256)
    elif kind == 8:
        data += bytes(dice.randrange(256) for _ in range(dice.randrange(20)))
    elif kind == 9 and len(data) > 30:
        at = dice.randrange(12, len(data) - 1)
        data[at : at + 2] = struct.pack(">H", dice.choice([0, 3, 5, 0xFFFF, 0x8000, 65536 - 12, 65520, 65534]))
    else:
        del data[dice.randrange(len(data)) :]
        data += b"\x05abc"
    return bytes(data)
