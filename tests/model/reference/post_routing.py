"""The post-routing hook: hands DNS answers on, and makes the access point's replies look like the first-contacted server's.

It accepts always.
"""

from .kernel import DEBUG
from .packet import ACK, ETHERNET, FIN, READABLE_IN_PLACE, TCP, UDP
from .portal_table import MIREL_ROW, MODE_7_ROW, ROW_OF_PORT, SOCIAL_ROW, SPECIAL_ROW
from .scan import dotted

DNS = 53
UDP_HEADER = 8

ROW_OF_REPLY = (
    ROW_OF_PORT
    | {port: SPECIAL_ROW for port in (82, 88, 89, *range(1025, 1059))}
    | {83: SOCIAL_ROW, 84: SOCIAL_ROW, 86: MIREL_ROW, 87: MIREL_ROW, 90: MODE_7_ROW, 91: MODE_7_ROW}
)


class PostRoutingRewrite:
    def __init__(self, module):
        self.module = module
        self.kernel = module.kernel
        self.portal = module.portal
        self.parser = module.parser

    def hook(self, packet):
        if packet.device == "lo":
            return
        protocol = packet.protocol()
        if protocol == UDP:
            self.hand_dns_on(packet)
        if protocol == TCP:
            self.reply(packet)

    def hand_dns_on(self, packet):
        if packet.field(ETHERNET, 1) >> 4 != 4 or not packet.device.startswith("wlan"):
            return
        if packet.field(ETHERNET + 2, 2) - packet.header_length() - UDP_HEADER <= 0 or packet.source_port() != DNS:
            return
        length = packet.transport(4, 2)
        if length is None:
            return
        start = ETHERNET + packet.header_length() + UDP_HEADER
        message = packet.frame[start : max(start, start + length - UDP_HEADER)]
        # A message that does not lie in one piece is read from a copy.
        in_place = packet.is_linear or start + len(message) <= ETHERNET + READABLE_IN_PLACE
        if in_place or self.kernel.allocate():
            self.parser.parse(message)

    def reply(self, packet):
        row = ROW_OF_REPLY.get(packet.source_port())
        source = packet.source()
        destination = packet.destination()
        if row is None:
            if destination is not None and self.module.debug_level > 2:
                self.kernel.log(
                    DEBUG,
                    f"[nf_cp_change] in_name=(null) out_name={packet.device} saddr={dotted(source)} "
                    f"daddr={dotted(destination)} pass\n",
                )
            return
        flags = packet.tcp_flags()
        is_end = flags is not None and flags & (FIN | ACK) == FIN | ACK
        is_own = source == self.portal.ap_address
        if not is_own and not is_end:
            return
        connections = self.portal.rows[row].connections
        key = (destination, packet.destination_port())
        if key not in connections:
            return
        if is_own and packet.is_rewritable() and packet.is_writable:
            packet.pretend(*connections[key])
        if is_end:
            del connections[key]
