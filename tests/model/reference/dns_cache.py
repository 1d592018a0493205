"""The cache of addresses that answers gave for names, filed in buckets of 1024."""

from .kernel import DEBUG
from .scan import dotted

CAPACITY = 16384


def bucket_of(address):
    """The first octet and the low two bits of the second."""
    return address >> 24 | (address >> 16 & 3) << 8


class Name:
    __slots__ = ("text", "shown")

    def __init__(self, text):
        self.text = text
        self.shown = False


class Entry:
    __slots__ = ("address", "timeout", "mask", "shown", "names")

    def __init__(self, address, timeout, mask, name):
        self.address = address
        self.timeout = timeout
        self.mask = mask
        self.shown = False
        self.names = [Name(name)]


def garden_list(mask):
    """The interfaces of a mask as the log and the report name them; bits 24 to 26 are never shown."""
    names = [f" {bit // 8 + 1}-{bit % 8 + 1}" for bit in range(24) if mask >> bit & 1]
    if mask >> 27 & 1:
        names.append(" MIREL")
    return "".join(names)


class DnsCache:
    def __init__(self, module):
        self.module = module
        self.kernel = module.kernel
        self.garden = module.garden
        # Only the buckets that ever held an entry are here.
        self.buckets = {}
        self.count = 0

    def in_order(self):
        """The buckets that are not empty, with their numbers."""
        return [(number, self.buckets[number]) for number in sorted(self.buckets)]

    def find(self, address):
        for entry in self.buckets.get(bucket_of(address), ()):
            if entry.address == address:
                return entry
        return None

    def add(self, mask, name, address, ttl):
        deadline = self.kernel.now() + ttl
        entry = self.find(address)
        if entry is None:
            self.add_entry(mask, name, address, deadline)
            return
        if all(known.text != name for known in entry.names):
            self.add_name(entry, mask, name)
        entry.timeout = max(entry.timeout, deadline)

    def add_name(self, entry, mask, name):
        # A node, then the copy of the name.
        if not (self.kernel.allocate() and self.kernel.allocate()):
            return
        # Deliberate: the mask is replaced, not widened.
        if mask != 0:
            entry.mask = mask
        entry.names.append(Name(name))

    def add_entry(self, mask, name, address, deadline):
        if self.count >= CAPACITY:
            if self.module.debug_level >= 1:
                self.kernel.log(
                    DEBUG,
                    f"Exceed maximum (total_ip_count={self.count}), not add \"A record\" "
                    f"(is_match_wg={mask}, {name}, {dotted(address)})\n",
                )
            return
        # The entry, its first name's node, the copy of the name.
        if not (self.kernel.allocate() and self.kernel.allocate() and self.kernel.allocate()):
            return
        self.buckets.setdefault(bucket_of(address), []).append(Entry(address, deadline, mask, name))
        self.count += 1
        if self.module.debug_level > 2:
            self.kernel.log(DEBUG, f"total_ip_count={self.count}\n")

    def match(self, address, index):
        """A stale entry matches until it has been removed."""
        entry = self.find(address)
        return entry is not None and entry.mask >> index & 1 == 1

    def refresh(self, index):
        """Asks the rules again for one bit of every entry."""
        bit = 1 << index
        for _, entries in self.in_order():
            for entry in entries:
                if any(self.garden.match_domain(name.text, index) for name in entry.names):
                    entry.mask |= bit
                else:
                    entry.mask &= ~bit

    def expire(self):
        """One pass of the thread: everything is told at debug level 3, what is stale goes."""
        now = self.kernel.now()
        loud = self.module.debug_level > 2
        if loud:
            self.kernel.log(DEBUG, f"[schedule_check]in while loop, now={now}, total_ip_count={self.count}\n")
        for number, entries in self.in_order():
            if loud:
                for entry in entries:
                    self.tell(number, entry, now)
            living = [entry for entry in entries if entry.timeout >= now]
            self.count -= len(entries) - len(living)
            self.buckets[number] = living

    def tell(self, number, entry, now):
        log = self.kernel.log
        end = " (delete)" if now > entry.timeout else ""
        log(
            DEBUG,
            f"[{number}]IP={dotted(entry.address)}, timeout={entry.timeout}, is_match_wg={entry.mask}, "
            f"is_dump={int(entry.shown)}{end}\n",
        )
        if entry.mask != 0:
            log(DEBUG, f"  match walled garden:{garden_list(entry.mask)}\n")
        for name in entry.names:
            log(DEBUG, f"  fqdn = {name.text}\n")
