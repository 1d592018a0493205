"""A frame, read by offsets and never behind its end, and the two ways of rewriting it.

Every reader gives None for a field that is not wholly inside the frame. A later fragment has no transport header.
"""

ACCEPT = 1
DROP = 0

IPV4 = 0x0800
IPV6 = 0x86DD
ICMP = 1
TCP = 6
UDP = 17

FIN = 0x01
SYN = 0x02
ACK = 0x10

HOST = 0
OTHER_HOST = 3

ETHERNET = 14
TCP_FLAGS = 13
TCP_CHECKSUM = 16
# The module asks for this many bytes behind the Ethernet header to be readable in place.
READABLE_IN_PLACE = 80


def fold(total):
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return total


class Packet:
    __slots__ = ("device", "frame", "mark", "kind", "is_partial", "is_writable", "is_linear")

    def __init__(self, step):
        self.device = step["device"]
        self.frame = bytes.fromhex(step["frame"])
        self.mark = step.get("mark", 0)
        self.kind = OTHER_HOST
        self.is_partial = step.get("checksum") == "partial"
        self.is_writable = step.get("writable", True)
        self.is_linear = step.get("layout") != "headers_only"

    def field(self, offset, size):
        field = self.frame[offset : offset + size]
        if len(field) < size:
            return None
        return int.from_bytes(field, "big")

    def source_mac(self):
        return self.frame[6:12] if len(self.frame) >= 12 else None

    def ether_type(self):
        return self.field(12, 2)

    def protocol(self):
        return self.field(ETHERNET + 9, 1)

    def source(self):
        return self.field(ETHERNET + 12, 4)

    def destination(self):
        return self.field(ETHERNET + 16, 4)

    # The readers from here on are for a frame whose protocol is known, so that what they need of the IPv4 header is there.

    def header_length(self):
        return 4 * (self.frame[ETHERNET] & 15)

    def is_later_fragment(self):
        return self.field(ETHERNET + 6, 2) & 0x1FFF != 0

    def transport(self, offset, size):
        if self.is_later_fragment():
            return None
        return self.field(ETHERNET + self.header_length() + offset, size)

    def source_port(self):
        return self.transport(0, 2)

    def destination_port(self):
        return self.transport(2, 2)

    def tcp_flags(self):
        return self.transport(TCP_FLAGS, 1)

    def is_rewritable(self):
        """An IPv4 packet with its header and everything up to the end of the TCP checksum inside."""
        if self.ether_type() != IPV4 or self.header_length() < 20:
            return False
        return self.transport(TCP_CHECKSUM, 2) is not None

    def redirect(self, address, port, mac):
        self.rewrite(16, 2, address, port)
        self.frame = mac + self.frame[6:]
        self.kind = HOST

    def pretend(self, address, port, mac):
        """Makes a reply look as if it came from there."""
        self.rewrite(12, 0, address, port)
        self.frame = self.frame[:6] + mac + self.frame[12:]

    def rewrite(self, address_offset, port_offset, address, port):
        """Changes an address at its place in the IPv4 header and a port at its place in the TCP header."""
        frame = bytearray(self.frame)
        tcp = ETHERNET + self.header_length()
        address_at = slice(ETHERNET + address_offset, ETHERNET + address_offset + 4)
        port_at = slice(tcp + port_offset, tcp + port_offset + 2)
        sum_at = slice(tcp + TCP_CHECKSUM, tcp + TCP_CHECKSUM + 2)
        old_address = int.from_bytes(frame[address_at], "big")
        old_port = int.from_bytes(frame[port_at], "big")
        checksum = int.from_bytes(frame[sum_at], "big")
        frame[address_at] = address.to_bytes(4, "big")
        frame[port_at] = port.to_bytes(2, "big")
        if self.is_partial:
            # Only the address is part of the pseudo header, whose sum stands there uncomplemented.
            checksum = fold(checksum + (old_address ^ 0xFFFFFFFF) + address)
        else:
            checksum = self.replaced(checksum, old_address, address)
            checksum = self.replaced(checksum, old_port, port)
        frame[sum_at] = checksum.to_bytes(2, "big")
        self.sum_header(frame)
        self.frame = bytes(frame)

    @staticmethod
    def replaced(checksum, old, new):
        return fold((checksum ^ 0xFFFFFFFF) + (old ^ 0xFFFFFFFF) + new) ^ 0xFFFF

    def sum_header(self, frame):
        frame[ETHERNET + 10 : ETHERNET + 12] = bytes(2)
        end = ETHERNET + self.header_length()
        total = sum(int.from_bytes(frame[at : at + 2], "big") for at in range(ETHERNET, end, 2))
        frame[ETHERNET + 10 : ETHERNET + 12] = (fold(total) ^ 0xFFFF).to_bytes(2, "big")
