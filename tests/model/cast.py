"""Who and what takes part in one sequence: a few of each kind, so that they meet again."""

import random

import frames
import names

# Interface names as they may stand in a record; some are read as an interface, some as none.
# fmt: off
ODD_INTERFACES = [
    b"wlan-1-9", b"wlan-2-0", b"wlan-4-1", b"wlan-0-1", b"wlan-0-9", b"wlan-9-9", b"wlan-1-15", b"wlan-2-14",
    b"wlan-3-16", b"wlan-4-14", b"wlan-1-17", b"wlan-0-17", b"wlan- 1- 2", b"wlan-\t1-\n1", b"wlan-\xa01-1",
    b"wlan-+1-1", b"wlan--1-17", b"wlan-1--1", b"wlan-01-001x", b"wlan-1-1.5", b"wlan-0x1-1", b"wlan-", b"wlan-1",
    b"wlan-1-", b"wlan-x", b"Wlan-1-1", b"eth0", b"", b"all", b"all ", b"allx", b"ALL", b"wlan-4294967297-",
    b"wlan-1-42949672", b"wlan-184467440737", b"wlan-1-1xxxxxxxx", b"wlan-2-1\0garbage", b"wlan-1- -1",
    b"wlan-99999999-9", b"xwlan-1-1", b" wlan-1-1", b"wlan-1-000000001", b"wlan-1- 00000002", b"wlan-1-14\0", b"wlan",
    b"wlan-- 1-17", b"wlan-2-- 0", b"wlan-2--0", b"wlan-536870913-1", b"wlan-5368709121-", b"wlan--536870911-1",
]
# fmt: on
# The same as devices may be called.
# fmt: off
ODD_DEVICES = [
    "wlan-1-9", "wlan-1-15", "wlan-3-16", "wlan-2-14", "wlan-4-14", "wlan-0-14", "wlan-2-0", "wlan-4-1", "wlan-x",
    "wlan", "wlan-1-1x", "wlan--1-1", "wlan-1-17", "wlan-3-9", "wlan-1--1", "wlan0", "lo", "gone0", "free0", "broken0",
    "br0", "eth1", "WLAN-1-1",
]
# fmt: on
BLANKS = [b"", b"", b"", b" ", b"\t", b"\n", b"\v", b"\f", b"\r", b"\xa0", b"  ", b"\x85", b"\x1c"]
SIGNS = [b"", b"", b"", b"", b"-", b"+", b"--", b"- "]
NUMBERS = [
    b"1",
    b"2",
    b"3",
    b"4",
    b"8",
    b"9",
    b"0",
    b"14",
    b"16",
    b"17",
    b"01",
    b"",
    b"x",
    b"4294967297",
    b"255",
    b"256",
    b"65536",
]


def number_text(dice):
    """What a scanner for numbers may meet."""
    return dice.choice(BLANKS) + dice.choice(SIGNS) + dice.choice(NUMBERS)


def strange_interface(dice):
    if dice.random() < 0.5:
        return dice.choice(ODD_INTERFACES)
    return (
        b"wlan-"
        + number_text(dice)
        + dice.choice([b"-", b"-", b"-", b".", b""])
        + number_text(dice)
        + dice.choice([b"", b"", b"x", b"\n", b"\0y"])
    )


class Cast:
    # From whom the cast of a sequence is taken.
    ROWS = range(24)
    COMPANIONS = [b"wlan-%d-%d" % (radio, vap) for radio in (1, 2, 3) for vap in (14, 15, 16)]
    DEVICES = ODD_DEVICES

    def __init__(self, dice):
        self.dice = dice
        rows = dice.sample(self.ROWS, 2) + [0]
        self.rows = rows[: dice.choice([1, 2, 3])]
        self.interfaces = [b"wlan-%d-%d" % (row // 8 + 1, row % 8 + 1) for row in self.rows]
        # Companions, which frames come from and commands pair with an interface.
        self.companions = dice.sample(self.COMPANIONS, 2)
        self.odd_devices = dice.sample(self.DEVICES, 3)
        self.macs = dice.sample(frames.CLIENT_MACS, dice.choice([1, 2, 3]))
        self.clients = dice.sample(frames.CLIENTS, dice.choice([1, 2]))
        self.client_ports = [50000 + number for number in range(dice.choice([1, 2, 4]))]
        self.servers = dice.sample(frames.SERVERS + frames.PRIVATE + frames.LAST_BUCKETS, 3)
        self.names = dice.sample(names.NAMES, 3) + [names.small_name(dice)]
        self.patterns = dice.sample(names.PATTERNS, 3) + [names.small_pattern(dice), names.small_pattern(dice)]

    def rarely(self, one_in):
        return self.dice.randrange(one_in) == 0

    def interface(self):
        """For a record."""
        return strange_interface(self.dice) if self.rarely(7) else self.dice.choice(self.interfaces)

    def companion(self):
        return strange_interface(self.dice) if self.rarely(6) else self.dice.choice(self.companions)

    def row(self):
        """For a record; the last four rows are none of an interface's, and what is outside is refused."""
        dice = self.dice
        if self.rarely(8):
            return dice.choice([-1, 24, 25, 26, 28, 29, 0x7FFFFFFF, -0x80000000, 100, dice.randrange(28)])
        return 27 if self.rarely(8) else dice.choice(self.rows)

    def mac(self):
        kind = self.dice.randrange(25)
        if kind == 0:
            return self.dice.choice(frames.ODD_MACS)
        return self.near_miss(self.dice.choice(self.macs)) if kind == 1 else self.dice.choice(self.macs)

    def near_miss(self, mac):
        """One byte of it is another."""
        place = self.dice.randrange(6)
        return mac[:place] + bytes([mac[place] ^ 0x40]) + mac[place + 1 :]

    def device(self):
        """From which a frame comes, or through which it leaves."""
        dice = self.dice
        kind = dice.random()
        if kind < 0.78:
            return dice.choice(self.interfaces).decode()
        if kind < 0.86:
            return dice.choice(self.companions).decode()
        return "eth0" if kind < 0.93 else dice.choice(self.odd_devices)

    def destination(self):
        dice = self.dice
        kind = dice.random()
        if kind < 0.55:
            return dice.choice(self.servers)
        special = [frames.AP, frames.SOCIAL_LOGIN, frames.LOGOUT, frames.DNS_FILTER, frames.ROUTER, frames.MOVED_AP]
        return dice.choice(special) if kind < 0.9 else dice.choice(frames.EDGES + frames.PRIVATE)

    def name(self):
        """Asked for, or answered."""
        dice = self.dice
        if self.rarely(12):
            return dice.choice([names.small_name(dice), names.long_name(dice), dice.choice(names.NAMES)])
        return dice.choice(self.names)

    def pattern(self):
        dice = self.dice
        kind = dice.random()
        if kind < 0.7:
            return dice.choice(self.patterns)
        return dice.choice(self.names) if kind < 0.9 else names.small_pattern(dice)


def fresh(seed, number):
    """The dice of one sequence."""
    return random.Random(f"{seed} {number}")
