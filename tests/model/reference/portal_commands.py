"""The commands of the captive-portal table, and the status record."""

import struct

from .kernel import DEBUG
from .portal_table import LAST_ROW, MIREL_ROW
from .scan import WORD, text_of

WALLED_GARDEN, PORTAL, BLOCK_HTTPS, MIREL_PORTAL, LOGOUT_IP, DNS_FILTER = 0, 1, 5, 7, 8, 9
NAMES = {
    WALLED_GARDEN: "CP_WALLED_GARDEN",
    PORTAL: "CAPTIVE_PORTAL",
    MIREL_PORTAL: "CAPTIVE_PORTAL",
    BLOCK_HTTPS: "BLOCK_HTTPS",
}


class PortalCommands:
    def __init__(self, module):
        self.kernel = module.kernel
        self.portal = module.portal
        self.garden = module.garden

    def say(self, text):
        self.kernel.log(DEBUG, f"[captive portal]if_device_write_cp: {text}\n")

    def set(self, record):
        number, iface, value = struct.unpack_from("<Iii", record)
        if number == DNS_FILTER:
            self.say(f"DNS_FILTER_ENABLE enable_value={value}")
            self.portal.dns_filter_active = value
            return 0
        if number == LOGOUT_IP:
            return self.set_logout_ip(iface, text_of(record[12:28]))
        if number not in NAMES:
            return -1
        if number == MIREL_PORTAL:
            iface = MIREL_ROW
        self.say(f"{NAMES[number]} iface={iface} enable_value={value}")
        if not 0 <= iface <= LAST_ROW:
            return -1
        row = self.portal.rows[iface]
        if number == BLOCK_HTTPS:
            row.block_https = value & WORD
        # The value of CP_WALLED_GARDEN is stored and never read: nothing to keep here.
        elif number != WALLED_GARDEN:
            row.mode = value & WORD
        return 0

    def set_logout_ip(self, iface, text):
        self.say(f"LOGOUT_IP_NOTIFY iface={iface} value={text}")
        if not 0 <= iface <= LAST_ROW:
            return -1
        self.portal.rows[iface].logout_ip = text[:15]
        return 0

    def get(self, status):
        number, iface = struct.unpack_from("<II", status)
        # Row 24 is no interface and yet accepted.
        if number == 2 and iface <= 24:
            row = self.portal.rows[iface]
            enabled = self.garden.rows[iface].enable_value
            struct.pack_into("<IIII", status, 8, row.mark, row.mode, enabled, row.block_https)
            status[24:28] = self.portal.ap_address.to_bytes(4, "big")
