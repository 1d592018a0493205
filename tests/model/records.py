"""Records for the control device: good ones, odd ones, and bytes."""

import struct

import frames
import names

RECORD_BYTES = {1: 28, 2: 320, 3: 3376, 4: 3376, 6: 4, 7: 4, 8: 52, 9: 16592, 10: 32}
UNKNOWN_COMMANDS = [0, 5, 12, -1, 0x7FFFFFFF, -0x80000000, 256 + 1]
# Unmapped, and not the caller's.
BAD_ADDRESSES = [0, 0x7FFFFFFFF000, 0xFFFF800000000000, (1 << 64) - 1]
NETMASKS = ["255.255.255.255", "255.255.255.0", "255.0.0.0", "0.0.0.0", "255.255.0.255"]
# Logout addresses as texts, and what a reader of them makes of the text that checks nothing.
LOGOUTS = [
    (b"1.2.3.4", "1.2.3.4"),
    (b"1.2.3.4", "1.2.3.4"),
    (b"203.0.113.10", "203.0.113.10"),
    (b"", "0.0.0.0"),
    (b"\x001.2.3.4", "0.0.0.0"),
    (b"1.2.3.4\n9", "1.2.3.4"),
    (b"1\n2\n3\n4", "1.2.3.4"),
    (b"1.2.3.4.5.6.7.8.9", "1.2.3.4"),
    (b"1.2.300.4", "1.3.44.4"),
    (b"300.1.1.1", "44.1.1.1"),
    (b"1.2.3", "1.2.3.0"),
    (b"1.2", "1.2.0.0"),
    (b"1..3.4", "1.0.3.4"),
    (b" 1.2.3.4", "97.2.3.4"),
    (b"a.b.c.d", "49.50.51.52"),
    (b"\xff.1.1.1", "207.1.1.1"),
    (b"203.0.113.10.77", "203.0.113.10"),
    # Cut to 15 characters.
    (b"203.0.113.000010", "203.0.113.1"),
    (b"000203.0.113.010", "203.0.113.1"),
    (b"1.2.3.4294967297", "25.155.155.153"),
]
LOGOUT_TEXTS = [text for text, _ in LOGOUTS] + [b"1.2.3.-252", b"4294967297.2.3.4"]

CLIENT_COMMANDS = [0, 1, 2, 3, 4, 5, 10, 12, 22, 23, 24, 25, 26, 27, 31, 32]
FLUSHES = [9, 16, 30, 34]
UNASSIGNED = [6, 7, 8, 11, 13, 14, 15, 17, 18, 19, 20, 21, 28, 29, 33, 35, 36, 0x80000000, 0xFFFFFFFF]
LISTS = [6, 7, 8, 11, 14, 20, 21, 28, 33]
CHECKS = [18, 19, 29, 35]
VALUES = [0, 1, 1, 1, 2, 7, 8, 0xFFFFFFFF, 0x80000000]


def field(text, size):
    return text[:size].ljust(size, b"\0")


def portal_setting(cast, command=None, value=None):
    dice = cast.dice
    if command is None:
        command = (
            dice.choice([2, 3, 4, 6, 10, 0xFFFFFFFF])
            if cast.rarely(20)
            else dice.choice([0, 1, 1, 1, 1, 5, 5, 7, 7, 8, 8, 9, 9])
        )
    value = dice.choice(VALUES) if value is None else value
    return struct.pack("<IiI", command, cast.row(), value) + field(dice.choice(LOGOUT_TEXTS), 16)


def address_rule(cast):
    dice = cast.dice
    kind = struct.pack("<I", dice.choice([1, 1, 2, 0xFFFFFFFF]))
    address = frames.address(dice.choice(cast.servers + [frames.SOCIAL_LOGIN, frames.AP]))
    # Its text is asked about names as well.
    text = cast.pattern() if cast.rarely(6) else b""
    return kind + address + frames.address(dice.choice(NETMASKS)) + field(text, 128)


def domain_rule(cast):
    text = cast.pattern() + (b"y" * 130 if cast.rarely(25) else b"")
    return struct.pack("<I", 0) + cast.dice.choice([bytes(8), b"\x09" * 8]) + field(text, 128)


def default_rule(cast):
    text = cast.dice.choice(names.DEFAULT_NAMES + cast.names + [b"d" * 128, names.long_name(cast.dice)[:130]])
    return bytes(12) + field(text, 128)


def garden_setting(cast, command=None):
    dice = cast.dice
    if command is None:
        command = dice.choice([4, 5, 6, 0xFFFFFFFF]) if cast.rarely(30) else dice.choice([0, 0, 1, 2, 2, 2, 3, 3])
    number = (
        dice.choice([24, 25, -1, 0x7FFFFFFF, -0x80000000]) if cast.rarely(14) else dice.choice([0, 1, 1, 2, 3, 3, 5])
    )
    head = struct.pack("<IiIi", command, cast.row(), dice.choice([0, 1, 1, 1, 1, 2, 0xFFFFFFFF]), number)
    makers = [default_rule] if command == 1 else [address_rule, domain_rule, domain_rule]
    rules = b"".join(dice.choice(makers)(cast) for _ in range(max(0, min(number, 24))))
    return (head + rules).ljust(RECORD_BYTES[3], b"\0")


def garden_query(cast):
    dice = cast.dice
    command = dice.choice([0, 3, 6]) if cast.rarely(20) else dice.choice([4, 4, 4, 5])
    return struct.pack("<IiIi", command, cast.row(), 77, 99).ljust(RECORD_BYTES[4], dice.choice([b"\0", b"U"]))


def client_setting(cast, command=None, mac=None):
    dice = cast.dice
    if command is None:
        command = dice.choice(FLUSHES + UNASSIGNED) if cast.rarely(12) else dice.choice(CLIENT_COMMANDS)
    name = b"all" if command in FLUSHES and cast.rarely(2) else cast.interface()
    behavior, status = dice.choice([0, 1, 2, 2, 3, 0xFFFFFFFF]), dice.choice([0, 1, 2, 2, 2, 3])
    head = struct.pack("<III", command, behavior, status)
    return head + field(name, 16) + field(cast.companion(), 16) + (mac or cast.mac()) + dice.choice([bytes(2), b"pp"])


def client_query(cast):
    dice = cast.dice
    command = dice.choice([0, 5, 9, 18, 34, 0xFFFFFFFF]) if cast.rarely(20) else dice.choice(LISTS)
    head = (
        struct.pack("<III", command, 7, 8)
        + field(cast.interface(), 16)
        + field(cast.companion(), 16)
        + struct.pack("<I", 5)
    )
    return head.ljust(RECORD_BYTES[9], dice.choice([b"\0", b"U"]))


def client_check(cast):
    command = cast.dice.choice([0, 20, 36]) if cast.rarely(20) else cast.dice.choice(CHECKS)
    return struct.pack("<I", command) + field(cast.interface(), 16) + cast.mac() + bytes(2) + struct.pack("<I", 9)


def status_query(cast):
    command = cast.dice.choice([0, 1, 3]) if cast.rarely(10) else 2
    return struct.pack("<IiI", command, cast.row(), 3).ljust(RECORD_BYTES[2], b"\x33")


def gateway(cast):
    return frames.address(cast.dice.choice([frames.ROUTER, frames.ROUTER, "0.0.0.0", "10.1.2.3", frames.SOCIAL_LOGIN]))


MAKERS = {
    1: portal_setting,
    2: status_query,
    3: garden_setting,
    4: garden_query,
    6: gateway,
    7: gateway,
    8: client_setting,
    9: client_query,
    10: client_check,
}
# The long reply of 9 costs most and says least.
NUMBERS = [1] * 6 + [2] * 2 + [3] * 5 + [4] * 2 + [6] + [7] + [8] * 10 + [9] + [10] * 4 + [11] * 2


def ioctl(command, record):
    return {"op": "ioctl", "command": command, "record": record.hex()}


def debug_level(cast):
    level = cast.dice.choice([0, 1, 2, 3, 3, 3, 3, 3, 3, (1 << 32) + 3, 0xFFFFFFFF, 100, (1 << 63) + 2])
    return {"op": "ioctl", "command": 11, "argument": level}


def command(cast, number=None):
    """Any command; sometimes its record lies badly."""
    dice = cast.dice
    number = number or (dice.choice(UNKNOWN_COMMANDS) if cast.rarely(80) else dice.choice(NUMBERS))
    if number == 11:
        step = debug_level(cast)
    elif number not in MAKERS:
        step = {"op": "ioctl", "command": number, "argument": dice.choice([0, 1, 1 << 63])}
    elif cast.rarely(50):
        step = {"op": "ioctl", "command": number, "argument": dice.choice(BAD_ADDRESSES)}
    else:
        step = badly_placed(cast, ioctl(number, MAKERS[number](cast)))
    if cast.rarely(10):
        step["compat"] = True
    return step


def badly_placed(cast, step):
    dice = cast.dice
    record = bytes.fromhex(step["record"])
    kind = dice.randrange(40)
    if kind == 0 and len(record) <= 320:
        return {**step, "record": bytes(dice.randrange(256) for _ in record).hex()}
    if kind <= 2:
        border = dice.choice([0, len(record), len(record) - 1, dice.randrange(len(record) + 1)])
        return {**step, "border": border, "behind": dice.choice(["none", "read_only"])}
    if kind == 3:
        short = {**step, "record": record[: dice.randrange(len(record) + 1)].hex()}
        return {**short, "border": len(short["record"]) // 2, "behind": "read_only"} if cast.rarely(3) else short
    if kind == 4:
        return {**step, "record": (record + bytes(dice.randrange(1, 40))).hex()}
    return step
