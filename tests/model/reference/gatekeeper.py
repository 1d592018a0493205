"""The first pre-routing hook: guards the portal's own ports and marks the frames of clients that are not admitted."""

from .kernel import DEBUG
from .packet import ACCEPT, DROP, IPV4, IPV6, TCP, UDP
from .portal_table import (
    DNS_FILTER_ADDRESS,
    DNS_FILTER_MARK,
    LOGOUT_MARK,
    MIREL_MARK,
    MIREL_ROW,
    ROW_OF_PORT,
)
from .scan import in_aton, interface_index, owe_index, scan_interface

EXEMPT = (0x886B, 0x886C)
# The two lists differ on purpose.
WIRED_SERVICE_PORTS = (82, 83, 84, 86, 87, 90, 91)
WIRELESS_SERVICE_PORTS = (82, 83, 84, 90, 91)
DHCP_CLIENT = 68


def row_of_device(module, name):
    """The row that a wireless device's frames belong to, or None."""
    numbers = scan_interface(name)
    if numbers is None:
        return None
    radio, vap = numbers
    if 14 <= vap <= 16:
        companion = owe_index(radio, vap)
        if companion > 8:
            return None
        # What the companion is paired with is not mapped once more.
        name = module.clients.owe_pair[companion]
    row = interface_index(name)
    return row if row <= 23 else None


class Gatekeeper:
    def __init__(self, module):
        self.module = module
        self.kernel = module.kernel
        self.clients = module.clients
        self.portal = module.portal

    def hook(self, packet):
        ether_type = packet.ether_type()
        if ether_type in EXEMPT:
            return ACCEPT
        source = packet.source_mac()
        if source is not None and (source[0] & 1 or source == bytes(6)):
            return DROP
        port = packet.destination_port() if packet.protocol() == TCP else None
        if packet.device.startswith("wlan"):
            return self.wireless(packet, ether_type, port)
        return self.wired(packet, ether_type, port)

    def wired(self, packet, ether_type, port):
        if ether_type != IPV4:
            return ACCEPT
        if not self.kernel.is_access_point(packet.destination()):
            return ACCEPT
        if port in WIRED_SERVICE_PORTS or port in ROW_OF_PORT:
            return DROP
        return ACCEPT

    def wireless(self, packet, ether_type, port):
        if ether_type not in (IPV4, IPV6):
            return ACCEPT
        index = row_of_device(self.module, packet.device)
        if index is None:
            return DROP
        if ether_type == IPV4 and self.kernel.is_access_point(packet.destination()):
            if self.portal.rows[index].mode == 0 and port in WIRELESS_SERVICE_PORTS:
                return DROP
            if ROW_OF_PORT.get(port, index) != index:
                return DROP
        return self.classify(packet, index)

    # From here on the IPv4 places are read whatever the EtherType says: deliberate.

    def classify(self, packet, index):
        clients = self.clients
        mac = packet.source_mac()
        if self.portal.rows[MIREL_ROW].mode != 0:
            if mac in clients.mirel_white:
                return ACCEPT
            if mac in clients.mirel_black:
                packet.mark = MIREL_MARK
                return ACCEPT
        if self.portal.dns_filter_active != 0 and packet.protocol() == TCP and packet.destination() == DNS_FILTER_ADDRESS:
            packet.mark = DNS_FILTER_MARK
            return ACCEPT
        if mac in clients.login[index] or mac in clients.auth[index]:
            # An unset logout address is 0.0.0.0.
            if packet.destination() == in_aton(self.portal.rows[index].logout_ip):
                packet.mark = LOGOUT_MARK
            return ACCEPT
        if mac in clients.white[index] or mac in clients.ga_white[index] or mac in clients.fallback[index]:
            return ACCEPT
        if clients.status[index] == 2:
            return self.disconnected(packet, clients.behavior[index])
        row = self.portal.rows[index]
        if row.mode != 0:
            packet.mark = row.mark
        return ACCEPT

    def disconnected(self, packet, behavior):
        if behavior == 1:
            return ACCEPT
        if behavior == 2:
            if packet.protocol() == UDP and DHCP_CLIENT in (packet.source_port(), packet.destination_port()):
                return ACCEPT
            return DROP
        if self.module.debug_level >= 1:
            self.kernel.log(DEBUG, "[gatekeeper]ebt_gate_keeper: Unknow OVRA disconnection behavior, return\n")
        return DROP
