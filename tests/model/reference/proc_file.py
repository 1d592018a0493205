"""The proc file: a write selects what is listed and rearms the list, a read lists what has not been shown."""

from .dns_cache import bucket_of, garden_list
from .kernel import DEBUG, ERROR
from .scan import address_of, dotted, interface_index, scan_address, scan_interface, text_of

TARGET_SIZE = 19
INVALID = -22
NO_MEMORY = -12
FINISHED = "Finished...\n"


class Report:
    """What a read has produced so far; `room` is what the reader's buffer still takes."""

    def __init__(self, header, length):
        self.text = header[:length]
        self.room = length - len(self.text)

    def put(self, line):
        """Whether the line had room."""
        if len(line) > self.room:
            return False
        self.text += line
        self.room -= len(line)
        return True


class ProcFile:
    def __init__(self, module):
        self.module = module
        self.kernel = module.kernel
        self.cache = module.cache
        self.target = "all"

    def refuse(self, text):
        self.kernel.log(ERROR, f"summary_write [LINE]: {text}\n")
        return INVALID

    def write(self, memory, count):
        text = text_of(memory.read(min(count, TARGET_SIZE)))
        if count > TARGET_SIZE:
            return self.refuse(f"iface({text}) is wrong!")
        if text.startswith("wlan"):
            if scan_interface(text) is None:
                return self.refuse(f"sscanf iface({text}) failed!")
            if interface_index(text) > 23:
                return self.refuse(f"iface({text}) is wrong!")
        else:
            octets = scan_address(text)
            if octets is not None:
                if any(not 0 <= octet <= 255 for octet in octets):
                    return self.refuse(f"ip address({text}) is wrong!")
            elif text not in ("all", "mirel"):
                return self.refuse(f"iface({text}) is wrong!")
        self.target = text
        for _, entries in self.cache.in_order():
            for entry in entries:
                entry.shown = False
                for name in entry.names:
                    name.shown = False
        if self.module.debug_level > 2:
            self.kernel.log(DEBUG, f"summary_write [LINE]: summary_target:{text}\n")
        return count

    def selected(self):
        """The buckets to walk, and the test that an entry must pass."""
        target = self.target
        buckets = self.cache.in_order()
        if target == "all":
            return buckets, lambda entry: True
        if target == "mirel":
            return buckets, lambda entry: entry.mask >> 27 & 1
        if "." in target:
            octets = scan_address(target)
            # An interface name with a "." behind it was accepted; it is no address and selects nothing.
            if octets is None:
                return [], None
            address = address_of(octets)
            number = bucket_of(address)
            return [(number, self.cache.buckets.get(number, []))], lambda entry: entry.address == address
        index = interface_index(target)
        return buckets, lambda entry: entry.mask >> index & 1

    def read(self, length, position):
        """The result, and the bytes for the reader."""
        if position > 0:
            return 0, b""
        if length > 0 and not self.kernel.allocate():
            return NO_MEMORY, b""
        report = Report(f"Captive Portal DNS A Record Info, target={self.target}\n", length)
        if self.list_entries(report):
            report.put(FINISHED)
        produced = len(report.text)
        if self.module.debug_level > 2:
            self.kernel.log(DEBUG, f"summary_read [LINE]: total_read={produced}, len={report.room}\n")
        return produced, report.text.encode("latin-1")

    def list_entries(self, report):
        """Whether everything selected had room."""
        buckets, is_selected = self.selected()
        for number, entries in buckets:
            for entry in entries:
                if entry.mask == 0 or entry.shown or not is_selected(entry):
                    continue
                if not self.list_entry(report, number, entry):
                    return False
        return True

    def list_entry(self, report, number, entry):
        # A deadline before 1970 is shown as an unsigned number.
        timeout = entry.timeout & (1 << 64) - 1
        if not report.put(f"[{number}]IP={dotted(entry.address)}, timeout={timeout}\n"):
            return False
        if not report.put(f"  match walled garden:{garden_list(entry.mask)}\n"):
            return False
        for name in entry.names:
            if name.shown:
                continue
            if not report.put(f"  fqdn = {name.text}\n"):
                return False
            name.shown = True
        entry.shown = True
        return True
