"""The commands that change, list and test the client tables.

Each change runs its steps in an order of its own: what is logged, refused or lost for want of memory depends on it. The
numbers in the refusals are fixed parts of their texts. A node that was allocated before its interface was refused is lost.
"""

import struct

from .client_tables import ROWS, delete_first
from .kernel import DEBUG, ERROR
from .scan import interface_index, mac_text, owe_index, put_text, scan_interface, text_of

SLOTS = 1034


def owe_row(name):
    """The row of an OWE companion by its combined index alone, or None."""
    numbers = scan_interface(name)
    if numbers is None:
        return None
    row = owe_index(*numbers)
    return row if row <= 8 else None


class Change:
    """One record of the changing command."""

    def __init__(self, record):
        self.number, self.behavior, self.status = struct.unpack_from("<III", record)
        self.iface = text_of(record[12:28])
        self.owe_iface = text_of(record[28:44])
        self.mac = bytes(record[44:50])


class ClientCommands:
    def __init__(self, module):
        self.kernel = module.kernel
        self.tables = module.clients

    def set(self, record):
        change = Change(record)
        handler = self.CHANGES.get(change.number)
        if handler is None:
            return -1
        handler(self, change)
        return 0

    def say(self, text):
        self.kernel.log(DEBUG, f"[gatekeeper] if_device_write: {text}\n")

    def node(self, line):
        """Whether a node can be had."""
        if self.kernel.allocate():
            return True
        self.kernel.log(DEBUG, f"[gatekeeper] kmalloc fail(if_device_write_gk)({line}) \n")
        return False

    def refuse(self, line):
        self.kernel.log(ERROR, f"[gatekeeper] if_device_write_gk: line{line} invalid index number\n")

    def list_of(self, table, change, line):
        """The list that the record's interface selects, or None once it has been refused."""
        row = interface_index(change.iface)
        if row < ROWS:
            return table[row]
        self.refuse(line)
        return None

    def append(self, table, change, line):
        macs = self.list_of(table, change, line)
        if macs is not None:
            macs.append(change.mac)

    def allocate_and_append(self, table, change, wrong_index, no_memory):
        macs = self.list_of(table, change, wrong_index)
        if macs is not None and self.node(no_memory):
            macs.append(change.mac)

    def delete(self, table, change, line):
        macs = self.list_of(table, change, line)
        if macs is not None:
            delete_first(macs, change.mac)

    def flush(self, tables, change, line):
        if change.iface == "all":
            self.tables.flush(tables, range(ROWS))
            return
        row = interface_index(change.iface)
        if row < ROWS:
            self.tables.flush(tables, [row])
        else:
            self.refuse(line)

    def add_white(self, change):
        if self.node(1874):
            self.say(f"ADD_WHITELIST_MAC mac= {mac_text(change.mac)}, gk_cmd.iface={change.iface}")
            self.append(self.tables.white, change, 1885)

    def delete_white(self, change):
        self.say(f"DEL_WHITELIST_MAC, gk_cmd.fiace = {change.iface}  ")
        self.delete(self.tables.white, change, 1912)

    def add_auth(self, change):
        self.say(f"ADD_AUTH_MAC gk_cmd.iface={change.iface} ")
        self.allocate_and_append(self.tables.auth, change, 2070, 2077)

    def delete_auth(self, change):
        self.say(f"DEL_AUTH_MAC gk_cmd.iface={change.iface} ")
        self.delete(self.tables.auth, change, 2107)

    def add_login(self, change):
        self.say(f"ADD_LOGIN_MAC gk_cmd.iface={change.iface} ")
        self.kernel.log(DEBUG, f"[gatekeeper] add mac= {mac_text(change.mac)} \n")
        self.allocate_and_append(self.tables.login, change, 2140, 2147)

    def delete_login(self, change):
        self.say(f"DEL_LOGIN_MAC gk_cmd.iface={change.iface} ")
        self.kernel.log(DEBUG, f"[gatekeeper] del mac= {mac_text(change.mac)} \n")
        self.delete(self.tables.login, change, 2178)

    def flush_captive_portal(self, change):
        self.say(f"FLUSH_CAPTIVE_PORTAL_TABLE gk_cmd.iface={change.iface}")
        tables = self.tables
        self.flush([tables.white, tables.ga_white, tables.fallback, tables.login, tables.auth], change, 2268)

    def set_behavior(self, change):
        self.say(f"2407 gk_cmd.iface={change.iface} ")
        row = interface_index(change.iface)
        if row < ROWS:
            self.tables.behavior[row] = change.behavior
            self.tables.status[row] = change.status
        else:
            self.refuse(2413)

    def add_owe_pair(self, change):
        self.say(f"ADD_MAPPING_OWE_VAP, 2430 gk_cmd.iface={change.iface}, gk_cmd.owe_iface={change.owe_iface} ")
        row = owe_row(change.owe_iface)
        if row is None:
            self.refuse(2436)
        else:
            self.tables.owe_pair[row] = change.iface[:15]

    def flush_owe_pairs(self, _change):
        self.say("FLUSH_MAPPING_OWE_VAP")
        self.tables.owe_pair = [""] * len(self.tables.owe_pair)

    def add_mirel_black(self, change):
        if self.node(2468):
            self.say(f"ADD_MIREL_BLACK_LIST_MAC mac= {mac_text(change.mac)}")
            self.tables.mirel_black.append(change.mac)

    def delete_mirel_black(self, change):
        self.say("DEL_MIREL_BLACK_LIST_MAC")
        delete_first(self.tables.mirel_black, change.mac)

    def add_mirel_white(self, change):
        if self.node(2518):
            self.say(f"ADD_MIREL_WHITE_LIST_MAC mac= {mac_text(change.mac)}")
            delete_first(self.tables.mirel_black, change.mac)
            self.tables.mirel_white.append(change.mac)

    def delete_mirel_white(self, change):
        self.say("DEL_MIREL_WHITE_LIST_MAC")
        # Deliberate: leaving the white list takes a client off the black list as well.
        delete_first(self.tables.mirel_black, change.mac)
        delete_first(self.tables.mirel_white, change.mac)

    def add_ga_white(self, change):
        if self.node(1941):
            self.say(f"ADD_GA_WHITELIST_MAC mac= {mac_text(change.mac)}, gk_cmd.iface={change.iface}")
            self.append(self.tables.ga_white, change, 1952)

    def delete_ga_white(self, change):
        self.say(f"DEL_GA_WHITELIST_MAC, gk_cmd.fiace = {change.iface}  ")
        self.delete(self.tables.ga_white, change, 1979)

    def flush_ga_white(self, change):
        self.say(f"FLUSH_GA_WHITELIST_TABLE gk_cmd.iface={change.iface}")
        self.flush([self.tables.ga_white], change, 2349)

    def add_fallback(self, change):
        self.say(f"ADD_MAC_AUTH_FALLBACK gk_cmd.mac={mac_text(change.mac)}, gk_cmd.iface={change.iface}")
        if self.node(2008):
            self.append(self.tables.fallback, change, 2018)

    def delete_fallback(self, change):
        self.say(f"DEL_MAC_AUTH_FALLBACK gk_cmd.mac= {mac_text(change.mac)}, gk_cmd.fiace = {change.iface}  ")
        self.delete(self.tables.fallback, change, 2040)

    def flush_fallback(self, change):
        self.say(f"FLUSH_MAC_AUTH_FALLBACK gk_cmd.iface={change.iface}")
        self.flush([self.tables.fallback], change, 2389)

    CHANGES = {
        0: add_white,
        1: delete_white,
        2: add_auth,
        3: delete_auth,
        4: add_login,
        5: delete_login,
        9: flush_captive_portal,
        10: set_behavior,
        12: add_owe_pair,
        16: flush_owe_pairs,
        22: add_mirel_black,
        23: delete_mirel_black,
        24: add_mirel_white,
        25: delete_mirel_white,
        26: add_ga_white,
        27: delete_ga_white,
        30: flush_ga_white,
        31: add_fallback,
        32: delete_fallback,
        34: flush_fallback,
    }

    def get(self, reply):
        """Fills a list reply; what is not written stays as the caller sent it."""
        (number,) = struct.unpack_from("<I", reply)
        tables = self.tables
        if number == 14:
            row = owe_row(text_of(reply[28:44]))
            if row is not None:
                put_text(reply, 12, 16, tables.owe_pair[row])
        elif number == 20:
            self.list_macs(reply, tables.mirel_black)
        elif number == 21:
            self.list_macs(reply, tables.mirel_white)
        else:
            self.get_row(reply, number)

    def get_row(self, reply, number):
        tables = self.tables
        row = interface_index(text_of(reply[12:28]))
        if row >= ROWS:
            return
        lists = {6: tables.white, 7: tables.auth, 8: tables.login, 28: tables.ga_white, 33: tables.fallback}
        if number == 11:
            struct.pack_into("<II", reply, 4, tables.behavior[row], tables.status[row])
        elif number in lists:
            self.list_macs(reply, lists[number][row])

    def list_macs(self, reply, macs):
        # A list that is longer than the reply is cut to it.
        shown = macs[:SLOTS]
        for slot, mac in enumerate(shown):
            start = 48 + 16 * slot + 8
            reply[start : start + 6] = mac
        struct.pack_into("<I", reply, 44, len(shown))

    def check(self, reply):
        tables = self.tables
        (number,) = struct.unpack_from("<I", reply)
        lists = {18: tables.white, 19: tables.login, 29: tables.ga_white, 35: tables.fallback}
        row = interface_index(text_of(reply[4:20]))
        found = number in lists and row < ROWS and bytes(reply[20:26]) in lists[number][row]
        struct.pack_into("<I", reply, 28, int(found))
