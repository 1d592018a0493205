"""The commands that replace and read the walled garden's rules."""

import struct

from .garden_rules import ROWS, Rule
from .kernel import DEBUG, ERROR
from .portal_table import LAST_ROW, MIREL_ROW
from .scan import put_text, signed, text_of

SWITCH, UPDATE_DEFAULT, UPDATE, UPDATE_MIREL, GET_RULES, GET_DEFAULT = range(6)
CAPACITY = 24
NO_MEMORY = -12
INVALID = -22


def rule_offset(slot):
    return 16 + 140 * slot


class GardenCommands:
    def __init__(self, module):
        self.kernel = module.kernel
        self.garden = module.garden
        self.cache = module.cache

    def say(self, text):
        self.kernel.log(DEBUG, f"if_device_write_wg: {text}\n")

    def set(self, record):
        # The record is copied once more before anything in it is looked at.
        if not self.kernel.allocate():
            return NO_MEMORY
        number, iface, value, count = struct.unpack_from("<IiIi", record)
        if number == SWITCH:
            return self.switch(iface, value)
        if number == UPDATE_DEFAULT:
            return self.update_default(record, count)
        if number == UPDATE:
            return self.update(record, iface, value, count)
        if number == UPDATE_MIREL:
            return self.update(record, MIREL_ROW, value, count)
        return -1

    def switch(self, iface, value):
        self.say(f"WALLED_GARDEN wg_cmd->iface={iface} wg_cmd->enable_value={signed(value)}")
        if not 0 <= iface <= LAST_ROW:
            return -1
        self.garden.rows[iface].enable_value = value
        return 0

    def is_too_many(self, count):
        if count <= CAPACITY:
            return False
        self.kernel.log(ERROR, f"[walled garden] rule_number {count} out of range\n")
        return True

    def update_default(self, record, count):
        self.say(f"UPDATE_DEFAULT_RULE wg_cmd->rule_number = {count}")
        if self.is_too_many(count):
            return INVALID
        self.garden.default_rules = []
        for slot in range(count):
            start = rule_offset(slot) + 12
            name = text_of(record[start : start + 128])
            self.garden.default_rules.append(name)
            self.kernel.log(DEBUG, f"default_rule[{slot}].domain_name={name}\n")
        for index in range(ROWS):
            self.cache.refresh(index)
        return 0

    def update(self, record, iface, value, count):
        self.say(f"UPDATE_RULE wg_cmd->iface={iface} wg_cmd->rule_number = {count}")
        if not 0 <= iface <= LAST_ROW:
            return -1
        if self.is_too_many(count):
            return INVALID
        row = self.garden.rows[iface]
        row.enable_value = value
        row.rules = []
        for slot in range(count):
            # The list ends at the first rule that no node can be had for.
            if not self.kernel.allocate():
                break
            start = rule_offset(slot)
            kind, address, netmask = struct.unpack_from("<I4s4s", record, start)
            domain = text_of(record[start + 12 : start + 12 + 127])
            row.rules.append(Rule(kind, int.from_bytes(address, "big"), int.from_bytes(netmask, "big"), domain))
        self.cache.refresh(iface)
        return 0

    def get(self, reply):
        number, iface = struct.unpack_from("<II", reply)
        if number == GET_RULES:
            # The mirel row and the rows before it cannot be read.
            if iface <= 23:
                self.get_rules(reply, self.garden.rows[iface])
        elif number == GET_DEFAULT:
            self.get_default(reply)

    def get_rules(self, reply, row):
        for slot, rule in enumerate(row.rules):
            start = rule_offset(slot)
            struct.pack_into("<I", reply, start, rule.kind)
            if rule.kind != 0:
                reply[start + 4 : start + 8] = rule.address.to_bytes(4, "big")
                reply[start + 8 : start + 12] = rule.netmask.to_bytes(4, "big")
            else:
                put_text(reply, start + 12, 128, rule.domain)
        struct.pack_into("<II", reply, 8, row.enable_value, len(row.rules))

    def get_default(self, reply):
        for slot, name in enumerate(self.garden.default_rules):
            if name == "":
                break
            put_text(reply, rule_offset(slot) + 12, 128, name)
            struct.pack_into("<I", reply, 12, slot + 1)
