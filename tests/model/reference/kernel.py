"""The machine around the module: its log, its clocks, its memory, its registrations and its network devices."""

from .scan import address_of

ERROR = 3
DEBUG = 7
# Lines without a level of their own get the kernel's default one.
DEFAULT = 4


class Device:
    """A network device; `ipv4` is None without an IPv4 configuration, `bridge` is None for a device that is no port."""

    def __init__(self, step):
        self.mac = bytes.fromhex(step["mac"])
        self.ipv4 = None
        if step.get("ipv4") is not None:
            self.ipv4 = [address_of(map(int, text.split("."))) for text in step["ipv4"]]
        self.bridge = step.get("bridge")
        self.bridge_unreachable = step.get("bridge_unreachable", False)


class Kernel:
    # Ticks from one pass of the expiry thread to the next.
    PERIOD = 6000

    def __init__(self):
        self.lines = []
        self.seconds = 1_700_000_000
        self.tick = 0
        self.devices = {}
        self.memory_full = False
        # 0: no allocation is meant to fail; n: the n-th from now.
        self.allocations_to_failure = 0
        self.failing_registrations = {}

    def now(self):
        """The wall clock, which does not move by ticks."""
        return self.seconds

    def log(self, level, text):
        self.lines.append([level, text])

    def allocate(self):
        """Whether an allocation of the module succeeds."""
        if self.allocations_to_failure > 0:
            self.allocations_to_failure -= 1
            if self.allocations_to_failure == 0:
                return False
        return not self.memory_full

    def register(self, what):
        """0, or the error with which this registration was told to fail."""
        return self.failing_registrations.pop(what, 0)

    def is_access_point(self, address):
        """Whether this is the first address of "br0"; a field that is missing (None) is nobody's address."""
        device = self.devices.get("br0")
        if device is None or not device.ipv4:
            return False
        return device.ipv4[0] == address


class CallerMemory:
    """What lies at a caller's address: its bytes, and how far they can be read and written."""

    def __init__(self, data, step):
        """The pages from the step's `border` on are missing or can be read only; by default nothing follows the data."""
        self.data = bytes(data)
        border = step.get("border")
        self.writable = self.readable = len(self.data) if border is None else border
        if step.get("behind") == "read_only":
            self.readable = 1 << 64

    def read(self, size):
        """The first `size` bytes as far as they can be read."""
        return self.data.ljust(size, b"\0")[: min(size, self.readable)]

    def write(self, data):
        """Copies as much as the caller's pages take; the number of bytes not copied."""
        copied = min(len(data), self.writable)
        self.data = bytes(data[:copied]) + self.data[copied:]
        return len(data) - copied
