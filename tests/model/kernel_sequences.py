"""Sequences that a real machine can be made to play: no failures on order, frames that a bridge takes."""

import frames
from cast import Cast
from generate import Generator
from records import RECORD_BYTES

ROWS = [0, 1, 7, 8, 16, 23]
COMPANIONS = [b"wlan-1-14", b"wlan-1-15", b"wlan-2-14", b"wlan-3-16"]
ODD_DEVICES = ["wlan-1-9", "wlan-2-0", "wlan-4-1", "wlan-4-14", "wlan-x", "wlan", "wlan--1-1", "wlan-1-17"]
# The bridge's ports, which are there from the machine's start.
PORTS = sorted(
    {f"wlan-{row // 8 + 1}-{row % 8 + 1}" for row in ROWS}
    | {name.decode() for name in COMPANIONS}
    | {*ODD_DEVICES, "eth0"}
)
ADDRESSES = [
    [frames.AP],
    [frames.AP],
    [frames.AP],
    [frames.MOVED_AP],
    [],
    [frames.SOCIAL_LOGIN],
    [frames.MOVED_AP, frames.AP],
]
TAGS = (b"\x81\x00", b"\x88\xa8")
GROUPS_OF_THE_LINK = bytes.fromhex("0180c20000")


class KernelCast(Cast):
    ROWS = ROWS
    COMPANIONS = COMPANIONS
    DEVICES = ODD_DEVICES


class KernelGenerator(Generator):
    CAST = KernelCast
    # The thread sleeps for so long; a sleep that ends about when it wakes could see it or not.
    PERIOD = 6144
    MARGIN = 100

    def devices(self):
        self.bridge()
        for name in PORTS:
            self.add("device", name=name, mac="0200000000aa", ipv4=None, bridge="br0")

    def bridge(self):
        mac = frames.MOVED_AP_MAC if self.cast.rarely(8) else frames.AP_MAC
        self.add("device", name="br0", mac=mac.hex(), ipv4=self.dice.choice(ADDRESSES), bridge=None)

    def change_device(self):
        self.bridge()

    def load(self):
        self.add("load")
        self.is_loaded = True
        self.ticks_since_load = 0

    def open(self):
        # A second opener would be another process.
        if not self.is_open:
            super().open()

    def trouble(self):
        self.command()

    def fail_allocation(self, number):
        pass

    def long_scenes(self):
        pass

    def wait(self, ticks):
        # Time passes here between the steps as well.
        ticks = 6300 if ticks < 7000 else 12500
        if self.cast.rarely(3):
            ticks = 100
        if (self.ticks_since_load + ticks + self.MARGIN) % self.PERIOD <= 2 * self.MARGIN:
            ticks += 3 * self.MARGIN
        self.ticks_since_load += ticks
        super().wait(ticks)

    def time(self):
        # Before the load nobody waits.
        if self.is_loaded:
            super().time()

    def move_clock(self, seconds):
        super().move_clock(max(-86400, min(seconds, 86400)))

    def append(self, step):
        if step["op"] in ("pre", "post"):
            step = self.as_sent(step)
        elif step["op"] == "ioctl":
            step = self.as_called(step)
        if step is not None:
            super().append(step)

    def as_called(self, step):
        """Without what takes a 32-bit program; or None."""
        # The kernel's file layer answers command 2 itself: no program can reach the module with it.
        if not self.is_open or step["command"] == 2:
            return None
        # What lies behind a border ends with the record here.
        if "border" in step and len(step["record"]) < 2 * RECORD_BYTES[step["command"]]:
            return None
        return {key: value for key, value in step.items() if key != "compat"}

    @staticmethod
    def as_sent(step):
        """Without what nobody outside the kernel can choose; or None for a frame that would not come to the hooks."""
        frame = bytes.fromhex(step["frame"])
        dropped = {"layout", "writable"} | ({"mark"} if "firewall_mark" in step else set())
        step = {key: value for key, value in step.items() if key not in dropped}
        if len(frame) < 14 or step["device"] not in PORTS:
            return None
        # A tag is taken off before the hooks; groups that no bridge forwards do not come to them.
        if frame[12:14] in TAGS or frame[:5] == GROUPS_OF_THE_LINK:
            return None
        if step["op"] == "post":
            return step if frame[:6] in frames.CLIENT_MACS else None
        # Nor do senders that no frame can have.
        is_sender = frame[6] & 1 == 0 and frame[6:12] not in (bytes(6), frames.AP_MAC, frames.MOVED_AP_MAC)
        return step if is_sender else None


def sequence(seed, number):
    return KernelGenerator(seed, number).sequence()
