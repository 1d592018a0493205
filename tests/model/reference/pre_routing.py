"""The second pre-routing hook: what becomes of a marked packet, and the redirect to the access point's web service.

A packet is "on" when its mark belongs to a portal that is on. A field that a step needs and that is not in the frame drops
an "on" packet and lets any other pass as it is.
"""

from .kernel import DEBUG
from .packet import ACCEPT, DROP, ICMP, IPV6, SYN, TCP, UDP
from .portal_table import (
    DNS_FILTER_MARK,
    FIRST_REPUTATION_MARK,
    HTTP_PORTS,
    HTTPS_PORTS,
    LAST_REPUTATION_MARK,
    LOGOUT_MARK,
    MIREL_MARK,
    ROW_OF_MARK,
    SOCIAL_ADDRESS,
    SOCIAL_ROW,
    SPECIAL_ROW,
    is_internet,
)
from .scan import dotted

HTTP = 80
HTTPS = 443
WEB = (HTTP, HTTPS)
DHCP_CLIENT = 68
DNS = 53

SOCIAL_PORTS = {HTTP: 83, HTTPS: 84}
MIREL_PORTS = {HTTP: 86, HTTPS: 87}
MODE_7_PORTS = {HTTP: 90, HTTPS: 91}
DNS_FILTER_PORTS = {HTTP: 88, HTTPS: 89}
LOGOUT_PORT = 82

MISSING, KEPT, LEARNED = range(3)


def raw(port):
    """A port's two bytes in network order, read as a number by a little-endian machine."""
    return (port & 0xFF) << 8 | port >> 8


class PreRoutingCheck:
    def __init__(self, module):
        self.module = module
        self.kernel = module.kernel
        self.portal = module.portal
        self.garden = module.garden
        self.cache = module.cache

    def say(self, text):
        if self.module.debug_level > 2:
            self.kernel.log(DEBUG, text)

    def bridge_of(self, name):
        """The bridge of a port; a device that is not there leaves an empty name, which no bridge has."""
        device = self.kernel.devices.get(name)
        if device is None:
            self.say(f"get_bridge_name_by_iface: Could not find {name}\n")
            return ""
        if device.bridge is None:
            self.say(f"get_bridge_name_by_iface: {name} is not attached to any bridge\n")
            return "br0"
        if device.bridge_unreachable:
            self.say(f"get_bridge_name_by_iface: {name} is a bridge port but bridge info unavailable\n")
            return "br0"
        return device.bridge

    def refresh_identity(self, bridge_name):
        br0 = self.kernel.devices.get("br0")
        bridge = self.kernel.devices.get(bridge_name)
        if br0 is None or bridge is None or br0.ipv4 is None:
            return MISSING
        if not br0.ipv4:
            return KEPT
        self.portal.ap_address = br0.ipv4[0]
        self.portal.ap_mac = bridge.mac
        return LEARNED

    def record(self, packet, row, say_ports=None):
        """Records where a SYN wanted to go; `say_ports` shows a port in the line about a new entry."""
        connections = self.portal.rows[row].connections
        key = (packet.source(), packet.source_port())
        wanted = [packet.destination(), packet.destination_port()]
        if key in connections:
            # The MAC of the first SYN stays.
            connections[key][:2] = wanted
            return
        if say_ports is not None:
            self.say(
                f"nf_cp_check: add to table_list, if_index={row}  saddr={dotted(key[0])} daddr={dotted(wanted[0])}  "
                f"src port={say_ports(key[1])} dest port={say_ports(wanted[1])}\n"
            )
        # Without memory the connection is redirected all the same.
        if self.kernel.allocate():
            connections[key] = wanted + [packet.frame[0:6]]

    def redirect(self, packet, port):
        """Whether the packet could be made writable and was redirected."""
        if packet.is_writable:
            packet.redirect(self.portal.ap_address, port, self.portal.ap_mac)
        return packet.is_writable

    def hook(self, packet):
        bridge_name = self.bridge_of(packet.device)
        mode = self.portal.mode(packet.mark)
        if mode == 0:
            return self.special(packet, bridge_name)
        return self.intercept(packet, bridge_name, mode)

    def intercept(self, packet, bridge_name, mode):
        ether_type = packet.ether_type()
        if ether_type is None or ether_type == IPV6:
            return DROP
        protocol = packet.protocol()
        destination = packet.destination()
        if mode == 7:
            if destination is None:
                return DROP
            if is_internet(destination) or destination == self.portal.gateway:
                return ACCEPT
            if protocol == ICMP and self.kernel.is_access_point(destination):
                return ACCEPT
        if protocol is None or protocol == ICMP:
            return DROP
        if protocol == UDP:
            return self.intercept_udp(packet)
        if protocol != TCP:
            return ACCEPT
        if mode == 8:
            return DROP
        if self.refresh_identity(bridge_name) == MISSING:
            return ACCEPT
        if destination is None:
            return DROP
        if destination == SOCIAL_ADDRESS:
            return self.social_login(packet)
        if packet.destination_port() is None and not packet.is_later_fragment():
            return DROP
        return self.intercept_tcp(packet, bridge_name, mode, destination)

    def intercept_udp(self, packet):
        ports = (packet.source_port(), packet.destination_port())
        if None in ports:
            return DROP
        if DHCP_CLIENT in ports or DNS in ports:
            return ACCEPT
        return DROP

    def social_login(self, packet):
        port = packet.destination_port()
        if port not in WEB or not packet.is_rewritable():
            return DROP
        if packet.tcp_flags() & SYN:
            self.record(packet, SOCIAL_ROW, say_ports=int)
        if not self.redirect(packet, SOCIAL_PORTS[port]):
            return DROP
        self.say_social(packet, port)
        return ACCEPT

    def say_social(self, packet, port):
        self.say(
            f"[captive portal]dest ip is 2.2.2.2,daddr={dotted(packet.destination())},dst port={port},"
            f"saddr={dotted(packet.source())},src port={packet.source_port()}\n"
        )

    def intercept_tcp(self, packet, bridge_name, mode, destination):
        port = packet.destination_port()
        if port in WEB and destination == self.portal.ap_address:
            return ACCEPT
        block = self.portal.block_https(packet.mark)
        if port == HTTPS and block == 0:
            self.say("[captive portal]block disable, ACCEPT it\n")
            return ACCEPT
        index = self.portal.list_row(packet.mark)
        if self.garden.is_enabled(packet.mark):
            if self.garden.match_address(destination, index) or self.cache.match(destination, index):
                self.say(f"nf_cp_check: match walled garden, if_index={index} daddr={dotted(destination)}\n")
                return ACCEPT
            if port == HTTPS and block == 1:
                self.say(
                    f"nf_cp_check: not match walled garden and drop https, if_index={index} "
                    f"saddr={dotted(packet.source())} daddr={dotted(destination)}\n"
                )
                return DROP
        if port not in WEB or not packet.is_rewritable():
            return DROP
        if packet.tcp_flags() & SYN:
            self.record(packet, index)
        if not self.redirect(packet, self.reason_ports(packet.mark, mode)[port]):
            return DROP
        # The destination is the access point's now; only where that is the social-login address does more follow.
        return self.special(packet, bridge_name)

    def reason_ports(self, mark, mode):
        if mark == MIREL_MARK:
            return MIREL_PORTS
        if mode == 7:
            return MODE_7_PORTS
        row = ROW_OF_MARK[mark]
        return {HTTP: HTTP_PORTS[row], HTTPS: HTTPS_PORTS[row]}

    def special(self, packet, bridge_name):
        """Marks that are no portal's, and the social-login address; no EtherType is looked at."""
        destination = packet.destination()
        if packet.protocol() != TCP or destination is None:
            return ACCEPT
        mark = packet.mark
        is_reputation = FIRST_REPUTATION_MARK <= mark <= LAST_REPUTATION_MARK
        if mark not in (LOGOUT_MARK, DNS_FILTER_MARK) and destination != SOCIAL_ADDRESS and not is_reputation:
            return ACCEPT
        port = packet.destination_port()
        flags = packet.tcp_flags()
        if flags is None:
            if not packet.is_later_fragment():
                return ACCEPT
        elif flags & SYN and port in WEB and packet.is_rewritable():
            # Deliberate: the line shows these two ports as they lie in the packet.
            self.record(packet, SOCIAL_ROW if destination == SOCIAL_ADDRESS else SPECIAL_ROW, say_ports=raw)
        identity = self.refresh_identity(bridge_name)
        if identity == MISSING:
            return ACCEPT
        if identity == LEARNED:
            self.say("init ap_addr 1308 nf_cp_check\n")
        reason = self.special_port(packet, port)
        if reason is None:
            return DROP
        if not packet.is_rewritable():
            return ACCEPT
        return ACCEPT if self.redirect(packet, reason) else DROP

    def special_port(self, packet, port):
        """The port for a special packet, with its line, or None where there is none."""
        mark = packet.mark
        if packet.destination() == SOCIAL_ADDRESS:
            reason = SOCIAL_PORTS.get(port)
            if reason is not None:
                # Deliberate: the new port is shown as it will lie in the packet, unlike the portal's own line.
                self.say_social(packet, raw(reason))
            return reason
        if mark == DNS_FILTER_MARK:
            if port in WEB:
                name = "http" if port == HTTP else "https"
                self.say(f"[captive portal]{name} port, dest ip is 4.4.4.4\n")
            return DNS_FILTER_PORTS.get(port)
        if mark == LOGOUT_MARK:
            self.say("[captive portal]dest ip match logout ip addr\n")
            return LOGOUT_PORT
        rule = mark - FIRST_REPUTATION_MARK
        if port == HTTP:
            self.say("[captive portal]dest ip hit ip raputation rule !!!\n")
            return 1025 + rule
        if port == HTTPS:
            self.say("[captive portal]dest ip hit https ip raputation rule !!!\n")
            return 1042 + rule
        self.say("[captive portal] dest ip hit ip raputation rule !!!\n")
        return None
