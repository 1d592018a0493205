"""Wrong models, to see that the comparison notices them. What makes the model wrong returns what undoes it."""

import re

from reference import client_commands, dns_cache, dns_parser, gatekeeper, packet, pre_routing, proc_file, scan

# A wrong model has to show in so many sequences, and then in a sequence of so many steps.
SEQUENCES = 400
LONGEST = 12


def put(place, name, value):
    """Replaces a name of a module or class."""

    def make_wrong():
        # Not by getattr(), which unwraps a static method.
        before = vars(place)[name]
        setattr(place, name, value)
        return lambda: setattr(place, name, before)

    return make_wrong


def widen_mask(cache, entry, mask, name):
    if cache.kernel.allocate() and cache.kernel.allocate():
        entry.mask |= mask
        entry.names.append(dns_cache.Name(name))


def delete_from_white_alone(commands, change):
    commands.say("DEL_MIREL_WHITE_LIST_MAC")
    client_commands.delete_first(commands.tables.mirel_white, change.mac)


def add_once(checksum, old, new):
    return packet.fold(checksum + (old ^ 0xFFFFFFFF) + new)


# Takes a '+' as well.
ANY_NUMBER = scan._NUMBER.replace("-?", "[+-]?")
CHANGES = {**client_commands.ClientCommands.CHANGES, 25: delete_from_white_alone}

PLANTED = [
    ("ports 90 and 91 are the other way round", put(pre_routing, "MODE_7_PORTS", {80: 91, 443: 90})),
    (
        "port 86 is guarded on the wireless side too",
        put(gatekeeper, "WIRELESS_SERVICE_PORTS", gatekeeper.WIRED_SERVICE_PORTS),
    ),
    ("a second name widens the mask", put(dns_cache.DnsCache, "add_name", widen_mask)),
    ("a selection may have 20 bytes", put(proc_file, "TARGET_SIZE", 20)),
    ("leaving the white list leaves the black list alone", put(client_commands.ClientCommands, "CHANGES", CHANGES)),
    ("a finished checksum is changed like a partial one", put(packet.Packet, "replaced", staticmethod(add_once))),
    ("a name may follow 33 pointers", put(dns_parser, "POINTERS", 33)),
    ("a plus sign is a sign", put(scan, "_INTERFACE", re.compile(f"wlan-{ANY_NUMBER}-{ANY_NUMBER}"))),
]
