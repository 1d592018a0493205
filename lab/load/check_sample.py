"""Usage: check_sample.py <FILE

Follows what load_traffic tells of a load: plays its commands, its DNS answers and a part of its frames on the second
implementation of the module (tests/model), and compares what became of each sampled frame with what the model says:
whether it passed, where it came out, and every byte.

The last line is "right: ..." or "WRONG: ..."; exit status 0 only for the first.  Knows the format of traffic/sample.h.
"""

import pathlib
import struct
import sys

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "tests" / "model"))

from reference import Machine
from reference.packet import ACCEPT, Packet

HEAD = struct.Struct("<cBBBHHII")
UPLINK, ACCESS_POINT = 24, 25
AT_PORT, AT_UPLINK, AT_ACCESS_POINT = 1, 2, 4
ACCESS_POINT_MAC = bytes.fromhex("020000000001")
EVERYBODY = b"\xff" * 6
MOST_TOLD = 10
SHOWN_BYTES = 80
NAMES = [f"wlan-{row // 8 + 1}-{row % 8 + 1}" for row in range(24)] + ["uplink0", "br0"]


def shown(frame):
    return frame[:SHOWN_BYTES].hex() + ("..." if len(frame) > SHOWN_BYTES else "")


class Follower:
    def __init__(self):
        self.machine = Machine()
        ports = [{"op": "device", "name": name, "mac": "020000000002", "ipv4": None, "bridge": "br0"} for name in NAMES[:25]]
        self.machine.run([{"op": "device", "name": "br0", "mac": ACCESS_POINT_MAC.hex(), "ipv4": ["192.168.100.1"],
                           "bridge": None}, *ports, {"op": "load"}, {"op": "open"}])
        self.frames = self.followed = self.commands = self.passes = self.wrong = 0

    def command(self, number, record):
        self.machine.kernel.lines = []
        result = self.machine.ioctl({"command": number, "record": record.hex()})
        self.commands += 1
        if result["result"] != 0:
            self.tell(f"command {number} gives {result['result']} in the model")

    def expire(self):
        self.machine.module.cache.expire()
        self.passes += 1

    def pre_routing(self, device, frame):
        """The packet as it leaves the hooks, or None."""
        packet = Packet({"device": device, "frame": frame.hex()})
        module = self.machine.module
        if module.gatekeeper.hook(packet) != ACCEPT or module.pre_routing.hook(packet) != ACCEPT:
            return None
        return packet.frame

    def post_routing(self, device, frame):
        packet = Packet({"device": device, "frame": frame.hex()})
        self.machine.module.post_routing.hook(packet)
        return packet.frame

    def expected(self, place, frame, port):
        """Where it comes out, and what."""
        if place == ACCESS_POINT:
            return AT_PORT, self.post_routing(NAMES[port], frame)
        frame = self.pre_routing(NAMES[place], frame)
        if frame is None:
            return 0, b""
        if frame[:6] == ACCESS_POINT_MAC:
            return AT_ACCESS_POINT, frame
        if place == UPLINK:
            return AT_PORT, self.post_routing(NAMES[port], frame)
        frame = self.post_routing("uplink0", frame)
        return (AT_UPLINK | AT_ACCESS_POINT if frame[:6] == EVERYBODY else AT_UPLINK), frame

    def frame(self, place, port, seen_at, frame, came, is_checked):
        self.machine.kernel.lines = []
        where, wanted = self.expected(place, frame, port)
        if not is_checked:
            self.followed += 1
            return
        self.frames += 1
        if (where, wanted) != (seen_at, came):
            self.tell(f"sent at {NAMES[place]}: {shown(frame)}\n  model: places {where}, {shown(wanted)}\n"
                      f"  module: places {seen_at}, {shown(came)}")

    def tell(self, text):
        self.wrong += 1
        if self.wrong <= MOST_TOLD:
            print(text, flush=True)


def follow(file):
    follower = Follower()
    while head := file.read(HEAD.size):
        kind, place, port, seen_at, size, came_size, seconds, is_checked = HEAD.unpack(head)
        follower.machine.kernel.seconds = seconds
        data, came = file.read(size), file.read(came_size)
        if kind == b"F":
            follower.frame(place, port, seen_at, data, came, is_checked)
        elif kind == b"C":
            follower.command(place, data)
        elif kind == b"P":
            follower.expire()
        else:
            raise ValueError(f"what is {kind}?")
    return follower


def main():
    follower = follow(sys.stdin.buffer)
    is_right = follower.wrong == 0 and follower.frames != 0
    print(f"{'right:' if is_right else 'WRONG:'} the model says the same of {follower.frames} sampled frames, "
          f"{follower.wrong} differ ({follower.followed} more, {follower.commands} commands and {follower.passes} passes "
          "were followed)")
    return not is_right


sys.exit(main())
