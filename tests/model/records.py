"""Records for the control device: good ones, odd ones, and bytes."""

import struct

import frames
import names

RECORD_BYTES = {1: 28, 2: 320, 3: 3376, 4: 3376, 6: 4, 7: 4, 8: 52, 9: 16592, 10: 32}
NETMASKS = ["255.255.255.255", "255.255.255.0", "255.0.0.0", "0.0.0.0", "255.255.0.255"]
INTERFACES = [b"wlan-1-1", b"wlan-1-2", b"wlan-2-1", b"wlan-3-8"]
ODD_INTERFACES = [
    b"wlan-1-9", b"wlan-2-0", b"wlan-4-1", b"wlan-0-1", b"wlan-9-9", b"wlan-1-15", b"wlan-2-14", b"wlan-3-16", b"wlan-4-14", b"wlan-1-17", b"wlan-0-17",
    b"wlan- 1- 2", b"wlan-\t1-\n1", b"wlan-\xa01-1", b"wlan-+1-1", b"wlan--1-17", b"wlan-1--1", b"wlan-01-001x", b"wlan-1-1.5", b"wlan-0x1-1", b"wlan-",
    b"wlan-1", b"wlan-1-", b"wlan-x", b"Wlan-1-1", b"eth0", b"", b"all", b"all ", b"wlan-4294967297-", b"wlan-1-42949672", b"wlan-184467440737",
    b"wlan-1-1xxxxxxxx", b"wlan-2-1\0garbage", b"wlan-1- -1", b"wlan-99999999-9", b"xwlan-1-1", b" wlan-1-1",
]
LOGOUT_TEXTS = [b"1.2.3.4", b"203.0.113.10", b"", b"1.2.3.4\n9", b"1.2.3", b"1..3.4", b"300.1.1.1", b"a.b.c.d", b"203.0.113.100000", b"203.0.113.10.77",
                b"\0.2.3.4", b" 1.2.3.4", b"198.51.100.7\n", b"000203.0.113.010"]

CLIENT_COMMANDS = [0, 1, 2, 3, 4, 5, 10, 12, 22, 23, 24, 25, 26, 27, 31, 32]
RARE_CLIENT_COMMANDS = [9, 16, 30, 34]
LISTS = [6, 7, 8, 11, 14, 20, 21, 28, 33]
CHECKS = [18, 19, 29, 35]
REDUNDANT_NUMBERS = [6, 7, 8, 11, 13, 14, 15, 17, 18, 21, 28, 29, 33, 35, 36, 0x80000000, 0xFFFFFFFF]


def field(text, size):
    return text[:size].ljust(size, b"\0")


def interface(dice):
    return dice.choice(INTERFACES) if dice.random() < 0.8 else dice.choice(ODD_INTERFACES)


def row(dice, last=27):
    if dice.random() < 0.85:
        return dice.choice([0, 0, 0, 1, 8, 23, 27, dice.randrange(last + 1)])
    return dice.choice([-1, 24, 25, 26, 28, 29, 0x7FFFFFFF, -0x80000000, 100])


def mac(dice):
    return dice.choice(frames.CLIENT_MACS) if dice.random() < 0.95 else dice.choice(frames.ODD_MACS)


def portal_setting(dice):
    command = dice.choice([0, 1, 1, 1, 1, 5, 5, 7, 7, 8, 8, 9, 9]) if dice.random() < 0.95 else dice.choice([2, 3, 4, 6, 10, 0xFFFFFFFF])
    value = dice.choice([0, 1, 1, 1, 2, 7, 8, 0xFFFFFFFF, 0x80000000]) if command in (1, 7) else dice.choice([0, 1, 1, 2, 0xFFFFFFFF])
    return struct.pack("<IiI", command, row(dice), value) + field(dice.choice(LOGOUT_TEXTS), 16)


def rule(dice):
    if dice.random() < 0.4:
        return struct.pack("<I", dice.choice([1, 1, 2, 0xFFFFFFFF])) + frames.address(
            dice.choice(frames.SERVERS + frames.PRIVATE)) + frames.address(dice.choice(NETMASKS)) + field(
                dice.choice(names.PATTERNS) if dice.random() < 0.1 else b"", 128)
    text = dice.choice(names.PATTERNS if dice.random() < 0.9 else names.NAMES)
    return struct.pack("<III", 0, 0, 0) + (field(text, 128) if dice.random() < 0.95 else field(text + b"y" * 130, 128))


def garden_setting(dice):
    command = dice.choice([0, 0, 1, 2, 2, 2, 3, 3]) if dice.random() < 0.97 else dice.choice([4, 5, 6, 0xFFFFFFFF])
    number = dice.choice([0, 1, 1, 2, 3, 3, 5]) if dice.random() < 0.93 else dice.choice([24, 25, -1, 0x7FFFFFFF, -0x80000000])
    head = struct.pack("<IiIi", command, row(dice), dice.choice([0, 1, 1, 1, 1, 2, 0xFFFFFFFF]), number)
    if command == 1:
        rules = b"".join(struct.pack("<III", 0, 0, 0) + field(dice.choice(names.DEFAULT_NAMES), 128) for _ in range(max(0, min(number, 24))))
    else:
        rules = b"".join(rule(dice) for _ in range(max(0, min(number, 24))))
    return (head + rules).ljust(RECORD_BYTES[3], b"\0")


def garden_query(dice):
    command = dice.choice([4, 4, 4, 5]) if dice.random() < 0.95 else dice.choice([0, 3, 6])
    head = struct.pack("<IiIi", command, row(dice, 25), 77, 99)
    return head.ljust(RECORD_BYTES[4], bytes([dice.choice([0, 0x55])]))


def client_setting(dice):
    command = dice.choice(CLIENT_COMMANDS) if dice.random() < 0.94 else dice.choice(RARE_CLIENT_COMMANDS + REDUNDANT_NUMBERS)
    name = interface(dice)
    if command in RARE_CLIENT_COMMANDS and dice.random() < 0.5:
        name = b"all"
    behavior, status = dice.choice([0, 1, 2, 2, 3, 0xFFFFFFFF]), dice.choice([0, 1, 2, 2, 2, 3])
    owe = dice.choice([b"wlan-1-14", b"wlan-1-15", b"wlan-3-16"]) if dice.random() < 0.8 else interface(dice)
    return struct.pack("<III", command, behavior, status) + field(name, 16) + field(owe, 16) + mac(dice) + bytes(2)


def client_query(dice):
    command = dice.choice(LISTS) if dice.random() < 0.95 else dice.choice([0, 5, 9, 18, 34, 0xFFFFFFFF])
    owe = dice.choice([b"wlan-1-14", b"wlan-1-15", b"wlan-3-16"]) if dice.random() < 0.8 else interface(dice)
    head = struct.pack("<III", command, 7, 8) + field(interface(dice), 16) + field(owe, 16) + struct.pack("<I", 5)
    return head.ljust(RECORD_BYTES[9], bytes([dice.choice([0, 0x55])]))


def client_check(dice):
    command = dice.choice(CHECKS) if dice.random() < 0.95 else dice.choice([0, 20, 36])
    return struct.pack("<I", command) + field(interface(dice), 16) + mac(dice) + bytes(2) + struct.pack("<I", 9)


def status_query(dice):
    command = 2 if dice.random() < 0.9 else dice.choice([0, 1, 3])
    return struct.pack("<IiI", command, row(dice, 25), 3).ljust(320, b"\x33")


def gateway(dice):
    return frames.address(dice.choice([frames.ROUTER, frames.ROUTER, "0.0.0.0", "10.1.2.3", frames.SOCIAL_LOGIN]))


MAKERS = {1: portal_setting, 2: status_query, 3: garden_setting, 4: garden_query, 6: gateway, 7: gateway, 8: client_setting,
          9: client_query, 10: client_check}


def command(dice, number=None):
    """An ioctl step."""
    if dice.random() < 0.01:
        return {"op": "ioctl", "command": dice.choice([0, 5, 12, -1, 0x7FFFFFFF, -0x80000000, 256 + 1]), "argument": dice.choice([0, 1, 1 << 63])}
    number = number or dice.choice([1, 1, 1, 2, 3, 3, 3, 4, 6, 7, 8, 8, 8, 8, 8, 9, 10, 10, 11])
    if number == 11:
        return {"op": "ioctl", "command": 11, "argument": dice.choice([0, 1, 2, 3, 3, 3, 3, (1 << 32) + 3, 0xFFFFFFFF, 100])}
    if dice.random() < 0.02:
        return {"op": "ioctl", "command": number, "argument": dice.choice([0, 0x7FFFFFFFF000, (1 << 64) - 1])}
    record = MAKERS[number](dice)
    step = {"op": "ioctl", "command": number, "record": record.hex()}
    if dice.random() < 0.05:
        step["record"] = bytes(dice.randrange(256) for _ in range(RECORD_BYTES[number])).hex() if number not in (3, 4, 9) else step["record"]
    elif dice.random() < 0.04:
        step["border"] = dice.choice([0, len(record), dice.randrange(len(record) + 1)])
        step["behind"] = dice.choice(["none", "read_only"])
    elif dice.random() < 0.02:
        step["record"] = record[: dice.randrange(len(record))].hex()
    if dice.random() < 0.1:
        step["compat"] = True
    return step
