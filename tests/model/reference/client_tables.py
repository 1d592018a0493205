"""Client MAC tables: five lists per wireless interface, two lists for all, and the settings kept beside them."""

ROWS = 24
OWE_ROWS = 9


def delete_first(macs, mac):
    if mac in macs:
        macs.remove(mac)


class ClientTables:
    def __init__(self):
        self.auth = [[] for _ in range(ROWS)]
        self.login = [[] for _ in range(ROWS)]
        self.white = [[] for _ in range(ROWS)]
        self.ga_white = [[] for _ in range(ROWS)]
        self.fallback = [[] for _ in range(ROWS)]
        self.mirel_white = []
        self.mirel_black = []
        self.behavior = [0] * ROWS
        self.status = [0] * ROWS
        # The interface that each OWE companion is paired with. The companions' own names are never read.
        self.owe_pair = [""] * OWE_ROWS

    def flush(self, tables, rows):
        for row in rows:
            for table in tables:
                table[row].clear()
