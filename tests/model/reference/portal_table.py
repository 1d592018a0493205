"""The captive-portal table: a row per wireless interface and four more, and the look-ups by mark and by port.

Marks and ports never change, so that the searches over rows 0 to 23 are dictionaries made once.
"""

WIRELESS_ROWS = 24
SPECIAL_ROW = 24
MODE_7_ROW = 25
SOCIAL_ROW = 26
MIREL_ROW = 27
LAST_ROW = 27

MIREL_MARK = 5302
LOGOUT_MARK = 5304
FIRST_REPUTATION_MARK = 5307
LAST_REPUTATION_MARK = 5323
DNS_FILTER_MARK = 5324

SOCIAL_ADDRESS = 0x02020202
DNS_FILTER_ADDRESS = 0x04040404

MARKS = [5200 + 20 * (row // 8) + row % 8 for row in range(WIRELESS_ROWS)]
HTTP_PORTS = [10081 + 10000 * (row // 8) + row % 8 for row in range(WIRELESS_ROWS)]
HTTPS_PORTS = [port + 363 for port in HTTP_PORTS]

ROW_OF_PORT = {port: row for ports in (HTTP_PORTS, HTTPS_PORTS) for row, port in enumerate(ports)}
# The row whose switches a mark stands for: the mirel mark has the mirel row.
ROW_OF_MARK = {mark: row for row, mark in enumerate(MARKS)} | {MIREL_MARK: MIREL_ROW}


class PortalRow:
    __slots__ = ("mark", "mode", "block_https", "logout_ip", "connections")

    def __init__(self, mark, block_https):
        self.mark = mark
        self.mode = 0
        self.block_https = block_https
        self.logout_ip = ""
        # (client address, client port) -> [original address, original port, original destination MAC]
        self.connections = {}


class PortalTable:
    def __init__(self):
        self.rows = [PortalRow(mark, 1) for mark in MARKS] + [PortalRow(0, 0) for _ in range(4)]
        self.gateway = 0
        self.ap_address = 0
        self.ap_mac = bytes(6)
        self.dns_filter_active = 0

    def mode(self, mark):
        """The mode of the portal that a mark belongs to, 0 for a mark of none."""
        row = ROW_OF_MARK.get(mark)
        if row is None:
            return 0
        return self.rows[row].mode

    def block_https(self, mark):
        """What becomes of HTTPS; asked only for a mark whose portal is on."""
        if mark == MIREL_MARK:
            return 1
        return self.rows[ROW_OF_MARK[mark]].block_https

    def list_row(self, mark):
        """The row for connections and rules; asked only for a mark whose portal is on."""
        row = ROW_OF_MARK[mark]
        if row != MIREL_ROW and self.rows[row].mode == 7:
            return MODE_7_ROW
        return row


def is_internet(address):
    private = (address >> 16 == 0xC0A8, address >> 20 == 0xAC1, address >> 24 == 10)
    return not any(private)
