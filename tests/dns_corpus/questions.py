# SPDX-License-Identifier: GPL-2.0-only
"""What the servers are asked."""

import random
from dataclasses import dataclass

import zones

TYPES = {"A": 1, "NS": 2, "CNAME": 5, "SOA": 6, "PTR": 12, "MX": 15, "TXT": 16, "AAAA": 28, "SRV": 33, "DNAME": 39,
         "DS": 43, "DNSKEY": 48, "SVCB": 64, "HTTPS": 65, "ANY": 255, "CAA": 257, "TYPE65280": 65280}

# EDNS options of a question: a client's cookie, a client's subnet, the wish for the server's name.
COOKIE = bytes.fromhex("000a00080123456789abcdef")
SUBNET = bytes.fromhex("0008000700011800c00002")
SERVER_NAME = bytes.fromhex("00030000")


@dataclass(frozen=True)
class Question:
    server: str
    name: str  # as in a zone file, without the dot at its end
    type: str = "A"
    size: int = 1232  # of the largest answer; 0: no EDNS
    dnssec: bool = False
    version: int = 0  # of EDNS
    options: bytes = b""
    opcode: int = 0
    recursion: bool = True
    dns_class: int = 1
    signed: bool = False  # with a key that nobody knows


def any_case(name, seed):
    """Every letter large or small, as resolvers ask to make their question hard to guess."""
    dice = random.Random(f"{name} {seed}")
    letters = []
    escaped = 0
    for letter in name:
        escaped = 4 if letter == "\\" else max(0, escaped - 1)
        letters.append(letter if escaped else dice.choice((letter.lower(), letter.upper())))
    return "".join(letters)


def ask_bind(server):
    """Everything, of the server that compresses; less of the one that does not."""
    whole = server == "bind"
    ask = lambda name, *rest, **more: Question(server, name, *rest, **more)
    counts = zones.COUNTS if whole else [1, 2, 13, 21, 130]
    yield from (ask(f"many-{count}.example", size=4096) for count in counts)
    yield from (ask(f"many-{count}.example", size=0) for count in (1, 28, 29, 30, 31, 300))
    yield from (ask(f"many-{count}.example") for count in (64, 85))
    yield from (ask(any_case(f"many-{count}.example", count), size=4096) for count in (1, 3, 21))
    yield from (ask(f"lasts-{seconds}.example") for seconds in zones.TIMES_TO_LIVE)
    yield from (ask(f"link-{place}.example", size=size) for place in range(zones.CHAIN + 1) for size in (0, 4096)
                if whole or place % 3 == 0)
    lengths = zones.LONG_TARGETS if whole else [100, 126, 127, 253]
    yield from (ask(f"to-{kind}-{length}.example", size=0) for length in lengths for kind in ("wide", "narrow", "own"))
    yield from (ask(f"to-own-{length}-twice.example") for length in lengths if length < 240)
    for label in zones.LABEL_SIZES if whole else ():
        yield from (ask(zones.long_name(length, label, "w.example"), size=0) for length in zones.LONG_QUESTIONS)
    yield ask(any_case(zones.long_name(126, 20, "w.example"), 1))
    many_types = ("mixed.example", "example", "https.example", "_dns.example", "six-by-alias.example",
                  "unknown.example")
    for name in many_types if whole else many_types[:1]:
        yield from (ask(name, record_type) for record_type in
                    ("A", "AAAA", "MX", "TXT", "NS", "SRV", "CAA", "HTTPS", "SVCB", "ANY", "SOA", "CNAME", "TYPE65280"))
    yield ask("_sip._udp.example", "SRV")
    yield ask("mixed.example", "ANY", size=4096)
    yield ask("mixed.example", "ANY", size=0)
    yield ask("mixed.example", "MX", size=0)
    yield ask("https-alias.example", "HTTPS")
    for name in ("any.wild.example", "a.b.c.wild.example", "any.wild-alias.example", "outside.example",
                 "nowhere-alias.example", "far-alias.example", "www.moved.example", "same.moved.example",
                 "twice.example", "dotted-alias.example", "zero-alias.example", "dotted\\.label.example",
                 "zero\\000byte.example", "high\\200\\255.example", "with\\032blank.example", "star\\*star.example",
                 "\\000.wild.example", "a\\.b.wild.example", "\\001\\127\\192\\012.wild.example", "upper.example",
                 "mixed-alias.example", "nowhere.example", "a.nowhere.example", "_dns.example", "ns.child.example",
                 "www.child.example", "nowhere.else.test", "elsewhere.invalid"):
        yield ask(name)
        yield ask(any_case(name, server), size=0)
    yield ask("moved.example", "DNAME")
    yield ask("short.grown.example")
    yield ask(zones.long_name(150, 50, "grown.example"))
    yield ask("mixed.example", signed=True)
    yield ask("")
    for name in ("signed.test", "www.signed.test", "host.signed.test", "any.wild.signed.test", "nowhere.signed.test",
                 "many.signed.test"):
        yield from (ask(name, record_type, size=4096, dnssec=True) for record_type in ("A", "AAAA"))
        yield ask(name)
    yield ask("signed.test", "DNSKEY", size=4096, dnssec=True)
    yield ask("signed.test", "ANY", size=4096, dnssec=True)
    yield ask("https.signed.test", "HTTPS", size=4096, dnssec=True)
    yield ask("many.signed.test", size=512, dnssec=True)
    for options in (COOKIE, SUBNET, SERVER_NAME, COOKIE + SUBNET + SERVER_NAME):
        yield ask("mixed.example", options=options)
    yield ask("mixed.example", version=1)
    yield from (ask("mixed.example", opcode=opcode) for opcode in (2, 4, 5, 9))
    yield ask("mixed.example", recursion=False)
    yield ask("mixed.example", dns_class=255)
    yield ask("version.bind", "TXT", dns_class=3)
    yield ask("version.bind", "A", dns_class=3)


def ask_resolver(server, own):
    """Names of its own, and some for which it asks bind, twice: the second answer comes from its memory."""
    ask = lambda name, *rest, **more: Question(server, name, *rest, **more)
    for name in own:
        yield from (ask(name, record_type) for record_type in ("A", "AAAA", "TXT"))
        yield ask(name, size=0)
        yield ask(any_case(name, server), size=4096)
    yield from (ask(name, record_type) for name in ("mixed.example", "six-by-alias.example", "https.example")
                for record_type in ("A", "AAAA", "MX", "HTTPS", "ANY"))
    for name in (*(f"many-{count}.example" for count in (1, 2, 21, 64)), "outside.example",
                 "link-0.example", "link-9.example", "www.moved.example", "any.wild.example", "any.wild-alias.example",
                 "lasts-0.example", "lasts-65536.example", "lasts-2147483647.example", "to-wide-126.example",
                 "to-narrow-127.example", "to-own-127.example", "to-own-128-twice.example", "to-wide-253.example",
                 zones.long_name(126, 63, "w.example"), zones.long_name(127, 31, "w.example"),
                 zones.long_name(253, 62, "w.example"), "zero\\000byte.example", "dotted\\.label.example",
                 "nowhere.example", "nowhere-alias.example", "twice.example", "www.signed.test"):
        yield ask(name, size=4096)
        yield ask(any_case(name, 2), size=0)
    yield from (ask(f"many-{count}.example", size=0) for count in (28, 31, 64))
    yield ask("www.signed.test", size=4096, dnssec=True)
    yield ask("nowhere.signed.test", size=4096, dnssec=True)
    yield ask("elsewhere.invalid")
    yield ask("mixed.example", version=1)
    yield ask("mixed.example", options=COOKIE + SUBNET)
    yield ask("mixed.example", opcode=2)
    yield ask("version.bind", "TXT", dns_class=3)


UNBOUND_NAMES = ["", *(f"many-{count}.local.test" for count in (1, 2, 13, 29)), "mixed.local.test", "forever.local.test",
                 "beyond.local.test", "now.local.test", "alias.local.test", "nowhere.local.test", "all.test",
                 "any.name.all.test", zones.long_name(126, 40, "all.test"), zones.long_name(128, 40, "all.test"),
                 "a\\000b.all.test", "never.test", "no.test", "null.test", "dead.test"]
DNSMASQ_NAMES = [*(f"many-{count}.home.test" for count in (1, 2, 13, 29)), "plain.home.test", "now.home.test",
                 "dual.home.test", "wild.home.test", "any.name.wild.home.test", "blocked.home.test", "null.home.test",
                 "www.home.test", "shop.home.test", "one.any.home.test", "text.home.test", "home.test",
                 "svc.home.test", "nowhere.home.test", zones.long_name(126, 40, "wild.home.test"),
                 zones.long_name(130, 30, "wild.home.test")]


def questions():
    yield from ask_bind("bind")
    yield from ask_bind("bind-uncompressed")
    yield from ask_resolver("unbound", UNBOUND_NAMES)
    yield from (Question("unbound", f"many-{count}.local.test", size=4096) for count in (150, 252))
    yield from ask_resolver("dnsmasq", DNSMASQ_NAMES)
    yield from (Question("dnsmasq", f"many-{count}.home.test", size=4096) for count in (150, 240))
    yield Question("dnsmasq", "svc.home.test", "HTTPS")
    yield Question("dnsmasq", "home.test", "MX")
    yield Question("dnsmasq", "_sip._udp.home.test", "SRV")
