"""Reads a DNS answer and files its addresses under the queried name.

Reads stay inside the message. Lines that the module prints with addresses of its memory show "PTR" there.
"""

from .dns_cache import bucket_of
from .kernel import DEBUG
from .scan import dotted, text_of

HEADER = 12
NAME_SIZE = 128
# How many compression pointers one name may follow.
POINTERS = 32
TYPE_A = 1
FIXED_FIELDS = 10


class DnsParser:
    def __init__(self, module):
        self.module = module
        self.kernel = module.kernel
        self.garden = module.garden
        self.cache = module.cache

    def say(self, level, text):
        if self.module.debug_level >= level:
            self.kernel.log(DEBUG, text)

    def parse(self, message):
        if len(message) <= HEADER:
            return
        if message[4:6] != b"\x00\x01":
            return
        question = self.read_question(message)
        if question is None:
            self.say(2, "dns query parsing failed\n")
            return
        name, end = question
        # The class is not read: it may be missing.
        if message[end + 1 : end + 3] != b"\x00\x01":
            return
        if message[2] & 0x80 == 0:
            return
        failure = message[3] & 15
        if failure != 0:
            self.say(3, f"DNS Answer: {name} fails with RCODE = {failure}\n")
            return
        mask = 0
        for index in range(28):
            if self.garden.match_domain(name, index):
                mask |= 1 << index
        self.say(3, f"Get DNS response: {name}, is_match_wg={mask}\n")
        if not self.read_answers(message, end + 5, name, mask):
            self.say(2, "dns answer parsing failed\n")

    def read_question(self, message):
        """The queried name and the place of its end, or None. No byte of a question is a compression pointer."""
        position = HEADER
        name = bytearray()
        is_cut = False
        while message[position] != 0:
            length = message[position]
            label = message[position + 1 : position + 1 + length]
            position += 1 + length
            if position >= len(message):
                self.say(3, f"DNS packets might be corrupt or fragmented: PTR + {length} > PTR\n")
                return None
            # Once a label did not fit, none is taken any more.
            is_cut = is_cut or len(name) + length > 126
            if not is_cut:
                if name:
                    name += b"."
                name += label
        return text_of(name), position

    def read_answers(self, message, position, name, mask):
        """Whether all records could be read."""
        count = int.from_bytes(message[6:8], "big")
        for record in range(count):
            owner = bytearray(NAME_SIZE)
            fixed = self.read_name(message, position, owner, 0, 0)
            if fixed is None:
                self.say(2, "_parse_dns_domain() error\n")
                return False
            data = fixed + FIXED_FIELDS
            if data > len(message):
                return False
            kind = int.from_bytes(message[fixed : fixed + 2], "big")
            ttl = int.from_bytes(message[fixed + 4 : fixed + 8], "big")
            length = int.from_bytes(message[fixed + 8 : data], "big")
            if kind == TYPE_A:
                if data + 4 > len(message):
                    return False
                if length >= 4:
                    address = int.from_bytes(message[data : data + 4], "big")
                    self.file(record, count, mask, name, text_of(owner), address, ttl)
            # Deliberate: the step is 16 bits wide, so that a long record may lead back into itself.
            step = (data + length - position) & 0xFFFF
            if step == 0:
                return False
            position += step
        return True

    def file(self, record, count, mask, name, owner, address, ttl):
        number = int.from_bytes(address.to_bytes(4, "big"), "little")
        bucket = bucket_of(address)
        self.say(
            3,
            f"({record}/{count}, is_match_wg={mask})Qerey: {name}, Answer: {owner}, {dotted(address)}, "
            f"{number} mod 1024={bucket}, ttl: {ttl}\n",
        )
        self.cache.add(mask, name, address, ttl)

    def read_name(self, message, position, out, start, pointers):
        """Decodes a name into `out` from `start` on, after `pointers` pointers; the place behind it, or None."""
        room = NAME_SIZE - start
        out[start:] = bytes(room)
        used = 0
        while True:
            if position >= len(message):
                return None
            length = message[position]
            if length == 0:
                return position + 1
            if length >= 0xC0:
                if not self.follow(message, position, out, start, used, pointers):
                    return None
                return position + 2
            position += 1 + length
            if position >= len(message):
                self.say(3, f"DNS packets might be corrupt or fragmented: PTR + {length} > PTR\n")
                return None
            if used + length >= room - 1:
                self.say(
                    3,
                    f"domain length > the max size 128 (partial domain = {text_of(out[start:])}, "
                    f"{used} + {length} + 1 >= {room})\n",
                )
                # Deliberate: no later label fits any more.
                used = room - 1
                continue
            if used != 0:
                out[start + used] = ord(".")
                used += 1
            out[start + used : start + used + length] = message[position - length : position]
            used += length

    def follow(self, message, position, out, start, used, pointers):
        """Goes on at the place that a compression pointer names; whether that gave a name."""
        if position + 1 >= len(message):
            return False
        offset = (message[position] & 0x3F) << 8 | message[position + 1]
        room = NAME_SIZE - start
        if used != 0:
            if used + 1 < room:
                out[start + used] = ord(".")
                used += 1
            else:
                self.say(
                    3,
                    f"domain length > the max size 128 (partial domain = {text_of(out[start:])}, "
                    f"{used} + 1 >= {room})\n",
                )
        if offset >= len(message):
            self.say(2, f"DNS packets might be corrupt or fragmented: PTR + {offset} > PTR\n")
            return False
        if pointers == POINTERS or self.read_name(message, offset, out, start + used, pointers + 1) is None:
            self.say(2, "_parse_dns_domain() error\n")
            return False
        return True
