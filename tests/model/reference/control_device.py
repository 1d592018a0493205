"""The control device: one opener at a time, and the frame around every command."""

from .client_commands import ClientCommands
from .garden_commands import GardenCommands
from .kernel import DEBUG
from .portal_commands import PortalCommands
from .scan import WORD, signed

SET_GATEWAY, GET_GATEWAY, SET_DEBUG_LEVEL = 6, 7, 11
BUSY = -16


class ControlDevice:
    def __init__(self, module):
        self.module = module
        self.kernel = module.kernel
        self.in_use = 0
        portal = PortalCommands(module)
        garden = GardenCommands(module)
        clients = ClientCommands(module)
        # Command -> family in the log, size of the record, handler, whether the record is copied back.
        self.commands = {
            1: ("captive portal", 28, portal.set, False),
            2: ("captive portal", 320, portal.get, True),
            3: ("walled garden", 3376, garden.set, False),
            4: ("walled garden", 3376, garden.get, True),
            8: ("gatekeeper", 52, clients.set, False),
            9: ("gatekeeper", 16592, clients.get, True),
            10: ("gatekeeper", 32, clients.check, True),
        }

    def open(self):
        if self.in_use != 0:
            return BUSY
        self.in_use = 1
        return 0

    def release(self):
        self.in_use -= 1
        return 0

    def compat_ioctl(self, command, argument, memory):
        self.kernel.log(DEBUG, "[walled garden] start to get compat ioctl\n")
        return self.ioctl(command, argument & WORD, memory)

    def ioctl(self, command, argument, memory):
        if command == SET_DEBUG_LEVEL:
            return self.set_debug_level(argument)
        if command == SET_GATEWAY:
            return self.set_gateway(memory)
        if command == GET_GATEWAY:
            return memory.write(self.module.portal.gateway.to_bytes(4, "big"))
        if command not in self.commands:
            return -1
        family, size, handler, replies = self.commands[command]
        record = self.copy_in(memory, size)
        if record is None:
            self.kernel.log(DEBUG, f"[{family}] get data from user space error\n")
            return -1
        result = handler(record)
        if replies:
            return memory.write(record)
        return result

    def copy_in(self, memory, size):
        """A copy of the caller's record, or None; the memory is asked for before the caller's is looked at."""
        if not self.kernel.allocate():
            return None
        record = bytearray(memory.read(size))
        return record if len(record) == size else None

    def set_debug_level(self, argument):
        self.module.debug_level = signed(argument & WORD)
        self.kernel.log(DEBUG, f"[env_set] set debug_level = {self.module.debug_level}\n")
        return 0

    def set_gateway(self, memory):
        # What cannot be read counts as zero, and the address is stored all the same.
        self.module.portal.gateway = int.from_bytes(memory.read(4).ljust(4, b"\0"), "big")
        return 0
