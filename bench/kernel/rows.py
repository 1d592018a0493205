"""What is measured: which frames, by which way, and where and as what they must come out."""

import os
import socket
import struct

import nft_elements
from frames import ACK, SYN, TCP, UDP, frame, mac
from machine import RECEIVED, SENT

ROWS, FULL = 24, int(os.environ["CLIENTS"])
ROW, ROW_WITHOUT_PORTAL = 10, 23
MARK, HTTP_PORT = 5222, 20083  # of ROW
# Of a full table, from its first to its last; also how many strangers there are. Many, because hash tables have another key
# in each boot, and so another length of each chain. Each is asked twice in all batches of a row.
CLIENTS_ASKED = 992

ACCESS_POINT_MAC, GATEWAY_MAC = mac("02:00:00:00:00:01"), mac("02:00:00:00:00:fe")
ACCESS_POINT, SERVER, RESOLVER, CLIENT = "192.168.100.1", "203.0.113.10", "203.0.113.53", "192.168.100.50"
STRANGER = mac("02:33:00:00:00:01")
STRANGERS = [bytes([2, 0x33, 0, 1]) + number.to_bytes(2, "big") for number in range(CLIENTS_ASKED)]
OTHER_STRANGERS = [bytes([2, 0x33, 0, 2]) + number.to_bytes(2, "big") for number in range(CLIENTS_ASKED)]

# Each table's sub-command that adds; the next number takes away.
TABLES = {"login": 4, "auth": 2, "white": 0, "ga_white": 26, "fallback": 31}
OPPOSITE = 1

# 24 networks, of which the last one has SERVER: an address rule each for the module, an element each for nftables.
GARDEN_NETWORKS = [(f"198.18.{number}.0", "255.255.255.0") for number in range(23)] + [("203.0.113.0", "255.255.255.0")]


def interface(row):
    return f"wlan-{row // 8 + 1}-{row % 8 + 1}"


PORTS = [interface(row) for row in range(ROWS)] + ["uplink0"]


def client(table, row, number):
    return bytes([2, 0x10 + TABLES[table], row]) + number.to_bytes(3, "big")


def some_clients(table, size):
    asked = min(size, CLIENTS_ASKED)
    return [client(table, ROW, number * (size - 1) // max(asked - 1, 1)) for number in range(asked)]


class Way:
    """Frames that come in at `device`, or are sent by it, and come out at `comes_out_at` as `expected`."""

    def __init__(self, name, frames, *, device=interface(ROW), kind=RECEIVED, comes_out_at="uplink0", expected=None,
                 mark=0, bare=None, is_repeatable=True):
        self.name, self.frames, self.device, self.kind = name, frames, device, kind
        self.comes_out_at, self.expected, self.mark = comes_out_at, expected or frames, mark
        # Name of the way that the same frames go without the module.
        self.bare = bare or name
        # A first segment is a first one only once: it is not tried before it is timed.
        self.is_repeatable = is_repeatable


def to_server(source_mac, protocol=TCP, port=443, flags=ACK, source_port=51000):
    server = RESOLVER if protocol == UDP else SERVER
    return frame(source_mac, GATEWAY_MAC, (CLIENT, source_port), (server, port), protocol, flags)


def redirected(source_mac, flags, source_port=51000):
    return frame(source_mac, ACCESS_POINT_MAC, (CLIENT, source_port), (ACCESS_POINT, HTTP_PORT), TCP, flags)


def reply(source_mac, source, port):
    return frame(source_mac, STRANGER, (source, port), (CLIENT, 51000), TCP, ACK)


ALL_CLIENTS = [address for table in TABLES for address in some_clients(table, FULL)]
NEW_BATCHES, NEW_IN_BATCH = 31, 64
NEW_CONNECTIONS = range(1024, 1024 + NEW_BATCHES * NEW_IN_BATCH)  # their source ports

# Without the module and without a mark.
BARE_TCP = Way("TCP of strangers", [to_server(address) for address in STRANGERS])
BARE_CLIENTS = {table: Way(f"TCP of clients of {table}", [to_server(address) for address in some_clients(table, FULL)])
                for table in TABLES}
BARE_ONE_CLIENT = {table: Way(f"TCP of one client of {table}", [to_server(client(table, ROW, 0))]) for table in TABLES}
BARE_DNS = Way("DNS query", [to_server(address, UDP, 53) for address in STRANGERS])
# As pktgen makes it.
ONLY_CLIENT = client("login", ROW, 0)
BARE_DNS_OF_STRANGER = Way("DNS query of one stranger", [to_server(STRANGER, UDP, 53)])
BARE_DNS_OF_CLIENT = Way("DNS query of a client of login", [to_server(ONLY_CLIENT, UDP, 53)])
BARE_WITHOUT_PORTAL = Way("TCP by another port", [to_server(address) for address in OTHER_STRANGERS],
                          device=interface(ROW_WITHOUT_PORTAL))
BARE_TO_ACCESS_POINT = Way("TCP to the access point", [redirected(address, ACK) for address in STRANGERS],
                           comes_out_at="br0")
BARE_LOCAL = Way("TCP of the access point", [reply(ACCESS_POINT_MAC, ACCESS_POINT, 8080)], device="br0", kind=SENT,
                 comes_out_at=interface(ROW))
BARE_WAYS = [BARE_TCP, *BARE_CLIENTS.values(), *BARE_ONE_CLIENT.values(), BARE_DNS, BARE_DNS_OF_STRANGER,
             BARE_DNS_OF_CLIENT, BARE_WITHOUT_PORTAL, BARE_TO_ACCESS_POINT, BARE_LOCAL]


def admitted(table, size):
    bare = (BARE_ONE_CLIENT if size == 1 else BARE_CLIENTS)[table]
    return Way(f"admitted by {table}", bare.frames, bare=bare.name)


# By the module, with the portal on. The access point's address is known to it from the first redirect on, and the
# reply is rewritten because a first segment was recorded: the order matters.
UNADMITTED = [
    Way("unadmitted: DNS query", BARE_DNS.frames, mark=MARK, bare=BARE_DNS.name),
    Way("no portal, in no table", BARE_WITHOUT_PORTAL.frames, device=BARE_WITHOUT_PORTAL.device,
        bare=BARE_WITHOUT_PORTAL.name),
    Way("redirect: SYN of a known connection", [to_server(address, port=80, flags=SYN) for address in STRANGERS],
        comes_out_at="br0", expected=[redirected(address, SYN) for address in STRANGERS], mark=MARK,
        bare=BARE_TO_ACCESS_POINT.name),
    Way("redirect: later segment", [to_server(address, port=80) for address in STRANGERS], comes_out_at="br0",
        expected=[redirected(address, ACK) for address in STRANGERS], mark=MARK, bare=BARE_TO_ACCESS_POINT.name),
    Way("redirect: reply rewritten", [reply(ACCESS_POINT_MAC, ACCESS_POINT, HTTP_PORT)], device="br0", kind=SENT,
        comes_out_at=interface(ROW), expected=[reply(GATEWAY_MAC, SERVER, 80)], bare=BARE_LOCAL.name),
    Way("post-routing: TCP that is none of ours", BARE_LOCAL.frames, device="br0", kind=SENT,
        comes_out_at=interface(ROW), bare=BARE_LOCAL.name),
]
DNS_OF_STRANGER = Way("unadmitted: DNS query of one stranger", BARE_DNS_OF_STRANGER.frames, mark=MARK,
                      bare=BARE_DNS_OF_STRANGER.name)
ADMITTED_DNS = Way("admitted by login: DNS query", BARE_DNS_OF_CLIENT.frames, bare=BARE_DNS_OF_CLIENT.name)
FIRST_SEGMENTS = Way("redirect: first SYN",
                     [to_server(STRANGERS[port % CLIENTS_ASKED], port=80, flags=SYN, source_port=port)
                      for port in NEW_CONNECTIONS], comes_out_at="br0", mark=MARK,
                     expected=[redirected(STRANGERS[port % CLIENTS_ASKED], SYN, port) for port in NEW_CONNECTIONS],
                     bare=BARE_TO_ACCESS_POINT.name, is_repeatable=False)
GARDEN = Way("walled garden: address that is listed", BARE_TCP.frames, mark=MARK, bare=BARE_TCP.name)
MODE_7 = Way("mode 7: to the internet", BARE_TCP.frames, mark=MARK, bare=BARE_TCP.name)

# --- nftables: the same admission, in the same machine ------------------------------------------------------------

# Each ruleset of bench/nft, and the set, or map, in which it keeps the clients of each table.
RULESETS = {
    "verdict_map": {table: "clients" for table in TABLES},
    "verdict_map_by_index": {table: "clients" for table in TABLES},
    "five_sets": {table: table for table in TABLES},
}


def marks_of_ruleset():
    marks = ", ".join(f'"{interface(row)}" : {5200 + 20 * (row // 8) + row % 8}' for row in range(ROWS)
                      if row != ROW_WITHOUT_PORTAL)
    return f"add element bridge admission marks {{ {marks} }}\n"


def key_of_interface(ruleset, row):
    name = interface(row)
    return struct.pack("<I", socket.if_nametoindex(name)) if ruleset.endswith("_by_index") else \
        name.encode().ljust(16, b"\0")


def fill_ruleset(ruleset):
    for table, name in RULESETS[ruleset].items():
        for row in range(ROWS):
            nft_elements.add_clients("admission", name, key_of_interface(ruleset, row),
                                     (client(table, row, number) for number in range(FULL)), name == "clients")


def garden_elements():
    return f"add element bridge admission addresses {{ {', '.join(f'{address}/24' for address, _ in GARDEN_NETWORKS)} }}\n"


def ways_of_ruleset(ruleset):
    # A map answers for all tables at once.
    asked = TABLES if len(set(RULESETS[ruleset].values())) > 1 else ("login",)
    for table in asked:
        yield admitted(table, FULL), f"admitted by {table}"
    yield UNADMITTED[0], "unadmitted: DNS query"
