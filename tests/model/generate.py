"""Random sequences: random in what happens, and known in whom it happens to.

A sequence is determined by a seed and its number. The same few stations, ports, names and addresses come back all the
time, so that state builds up: connections meet their replies, answers meet their rules, records expire.
"""

import random

import frames
import names
import records
from frames import ACK, FIN, PSH, RST, SYN

WIRELESS = ["wlan-1-1", "wlan-1-1", "wlan-1-1", "wlan-1-2", "wlan-2-1", "wlan-3-8"]
ODD_DEVICES = ["wlan-1-9", "wlan-1-15", "wlan-3-16", "wlan-2-14", "wlan-4-14", "wlan-2-0", "wlan-4-1", "wlan-x", "wlan", "wlan-1-1x", "wlan--1-1", "wlan-1-17",
               "lo", "gone0", "free0", "broken0"]
WIRED = ["eth0"]
REPLY_PORTS = [80, 443, 10081, 10444, 10082, 20081, 30088, 30451, 82, 83, 84, 85, 86, 87, 88, 89, 90, 91, 1024, 1025, 1030, 1041, 1042, 1050, 1058, 1059]
MARKS = [5200, 5201, 5220, 5247, 5302, 5303, 5304, 5305, 5306, 5307, 5310, 5323, 5324, 5325, 0, 77]


class Generator:
    def __init__(self, seed, number):
        self.dice = random.Random(f"{seed} {number}")
        self.steps = []
        self.open = False
        self.loaded = False
        self.connections = []

    # --- the machine ------------------------------------------------------------------------------------------------

    def add(self, op, **keys):
        self.steps.append({"op": op, **keys})

    def devices(self):
        dice = self.dice
        addresses = [frames.AP] if dice.random() < 0.95 else dice.choice([[], None, [frames.MOVED_AP, frames.AP], [frames.SOCIAL_LOGIN]])
        if dice.random() < 0.97:
            self.add("device", name="br0", mac=frames.AP_MAC.hex(), ipv4=addresses, bridge=None)
        for name in sorted(set(WIRELESS + ["eth0", "wlan-1-9", "wlan-1-15", "wlan-3-16", "wlan-2-14", "wlan-4-14", "wlan-2-0"])):
            self.add("device", name=name, mac="0200000000aa", ipv4=None, bridge="br0" if dice.random() < 0.98 else "br1")
        self.add("device", name="free0", mac="0200000000ab", ipv4=None, bridge=None)
        self.add("device", name="broken0", mac="0200000000ac", ipv4=None, bridge="br0", bridge_unreachable=True)
        if dice.random() < 0.3:
            self.add("device", name="br1", mac=frames.MOVED_AP_MAC.hex(), ipv4=["10.9.8.7"], bridge=None)

    def change_device(self):
        dice = self.dice
        kind = dice.randrange(4)
        if kind == 0:
            self.add("remove_device", name=dice.choice(["br0", "wlan-1-2", "br1"]))
        elif kind == 1:
            self.add("device", name="br0", mac=dice.choice([frames.AP_MAC, frames.MOVED_AP_MAC]).hex(),
                     ipv4=dice.choice([[frames.AP], [frames.MOVED_AP], [], None, [frames.SOCIAL_LOGIN]]), bridge=None)
        else:
            self.add("device", name="br0", mac=frames.AP_MAC.hex(), ipv4=[frames.AP], bridge=None)

    def load(self):
        dice = self.dice
        if dice.random() < 0.1:
            self.add("fail_registration", what=dice.choice(["hooks", "thread", "proc"]), error=-12)
            if self.steps[-1]["what"] == "thread":
                del self.steps[-1]["error"]
        if dice.random() < 0.03:
            self.add("fail_registration", what="misc", error=-16)
            self.add("load")
            return
        self.add("load")
        self.loaded = True

    def reload(self):
        if self.open and self.dice.random() < 0.9:
            self.add("release")
            self.open = False
        self.add("unload")
        if not self.open:
            self.loaded = False
            self.connections.clear()
            self.load()
            if self.loaded:
                self.begin()

    def begin(self):
        """The daemon comes."""
        self.add("open")
        self.open = True
        self.add("ioctl", command=11, argument=self.dice.choice([3, 3, 3, 3, 2, 1, 0]))
        self.command(6)
        for _ in range(self.dice.randrange(5)):
            self.portal_on()

    def portal_on(self):
        import struct
        row = self.dice.choice([0, 0, 0, 0, 1, 8, 23])
        mode = self.dice.choice([1, 1, 1, 2, 7, 7, 8])
        sub = self.dice.choice([1, 1, 1, 1, 7])
        self.add("ioctl", command=1, record=(struct.pack("<IiI", sub, row, mode) + bytes(16)).hex())

    # --- the daemon -------------------------------------------------------------------------------------------------

    def command(self, number=None):
        self.steps.append(records.command(self.dice, number))

    def open_or_release(self):
        if self.open and self.dice.random() < 0.5:
            self.add("release")
            self.open = False
        else:
            self.add("open")
            self.open = True

    # --- packets ----------------------------------------------------------------------------------------------------

    def device(self):
        kind = self.dice.random()
        if kind < 0.86:
            return self.dice.choice(WIRELESS)
        return self.dice.choice(WIRED) if kind < 0.93 else self.dice.choice(ODD_DEVICES)

    def destination(self):
        dice = self.dice
        return dice.choice(dice.choice([frames.SERVERS, frames.SERVERS, frames.SERVERS, [frames.AP], [frames.SOCIAL_LOGIN], [frames.LOGOUT],
                                        [frames.DNS_FILTER], frames.PRIVATE, frames.EDGES, [frames.ROUTER], [frames.MOVED_AP],
                                        [f"203.0.113.{dice.randrange(8, 24)}"]]))

    def source_mac(self):
        return self.dice.choice(frames.CLIENT_MACS if self.dice.random() < 0.97 else frames.ODD_MACS)

    def finish(self, op, device, frame, **keys):
        dice = self.dice
        if dice.random() < 0.14:
            frame = frames.mutate(dice, frame)
        elif dice.random() < 0.03 and len(frame) > 14:
            frame = frame + bytes(dice.randrange(1, 20))
        if dice.random() < 0.1:
            keys["layout"] = "headers_only"
        if dice.random() < 0.05:
            keys["writable"] = False
        self.add(op, device=device, frame=frame.hex(), **keys)

    def request(self):
        """A TCP segment of a client, of a connection that is known now and then."""
        dice = self.dice
        if self.connections and dice.random() < 0.5:
            device, mac, source, port, destination, service = dice.choice(self.connections[-6:])
        else:
            device, mac, source = self.device(), self.source_mac(), dice.choice(frames.CLIENTS)
            port = 50000 + dice.randrange(4)
            destination, service = self.destination(), dice.choice([80, 80, 80, 443, 443, 8080, 53, 82, 86, 10081, 10444, 22, 10082, 1030])
        flags = dice.choice([SYN, SYN, SYN, ACK, PSH | ACK, FIN | ACK, RST, SYN | ACK, SYN | FIN | RST, 0])
        if flags & SYN:
            self.connections.append((device, mac, source, port, destination, service))
        partial = dice.random() < 0.2
        options = bytes(dice.choice([0, 0, 0, 4, 40]))
        segment = frames.tcp(source, destination, port, service, flags, b"GET" if not flags & SYN else b"", partial=partial, options=options)
        packet = frames.ipv4(source, destination, 6, segment, options=bytes([1]) * dice.choice([0, 0, 0, 0, 4, 40]))
        frame = frames.ethernet(dice.choice([frames.ROUTER_MAC, frames.AP_MAC]), mac, 0x0800, packet)
        keys = {}
        if dice.random() < 0.12:
            keys["firewall_mark"] = dice.choice(MARKS) if dice.random() < 0.9 else dice.randrange(5195, 5330)
        if dice.random() < 0.03:
            keys["mark"] = dice.choice(MARKS)
        if partial:
            # The sum is finished by whoever sends the frame: it must stay a whole segment.
            self.add("pre", device=device, frame=frame.hex(), checksum="partial", **keys)
        else:
            self.finish("pre", device, frame, **keys)

    def reply(self):
        dice = self.dice
        if self.connections and dice.random() < 0.85:
            device, mac, client, port, _, _ = dice.choice(self.connections[-6:])
        else:
            device, mac, client, port = self.device(), self.source_mac(), dice.choice(frames.CLIENTS), 50000 + dice.randrange(4)
        if dice.random() < 0.3:
            device = dice.choice(["eth0", "lo", "wlan-1-2", device])
        source = frames.AP if dice.random() < 0.85 else dice.choice([frames.MOVED_AP, "203.0.113.10", frames.SOCIAL_LOGIN])
        flags = dice.choice([SYN | ACK, ACK, PSH | ACK, FIN | ACK, FIN, RST | ACK, FIN | ACK | PSH])
        partial = dice.random() < 0.4
        service = dice.choice([10081, 10081, 10081, 10444, 82, 86, 90, 83, 88, 1030]) if dice.random() < 0.7 else dice.choice(REPLY_PORTS)
        packet = frames.ipv4(source, client, 6, frames.tcp(source, client, service, port, flags, b"page", partial=partial))
        frame = frames.ethernet(mac, frames.AP_MAC, 0x0800, packet)
        if partial:
            self.add("post", device=device, frame=frame.hex(), checksum="partial")
        else:
            self.finish("post", device, frame)

    def datagram(self):
        dice = self.dice
        mac, source, destination = self.source_mac(), dice.choice(frames.CLIENTS), self.destination()
        kind = dice.randrange(8)
        if kind <= 2:
            ports = dice.choice([(68, 67), (67, 68), (40000, 53), (53, 40000), (40000, 123), (40000, 68), (123, 123)])
            packet = frames.ipv4(source, destination, 17, frames.udp(source, destination, *ports, b"data"))
            frame = frames.ethernet(frames.ROUTER_MAC, mac, 0x0800, packet)
        elif kind == 3:
            frame = frames.ethernet(frames.ROUTER_MAC, mac, 0x0800, frames.ipv4(source, destination, dice.choice([1, 1, 1, 2, 47, 50, 0, 255]), b"\x08\x00ping"))
        elif kind == 4:
            frame = frames.arp(mac)
        elif kind == 5:
            frame = frames.ipv6(mac, frames.ROUTER_MAC, next_header=dice.choice([6, 17, 58, 0]))
        elif kind == 6:
            frame = frames.ethernet(frames.AP_MAC, mac, dice.choice([0x886B, 0x886C, 0x888E, 0x8100, 0x0004, 0x0800]), bytes(dice.randrange(30)))
        else:
            frame = bytes(dice.randrange(256) for _ in range(dice.randrange(60)))
        keys = {"firewall_mark": dice.choice(MARKS)} if dice.random() < 0.1 else {}
        self.finish(dice.choice(["pre", "pre", "pre", "post"]), self.device(), frame, **keys)

    def dns(self, message=None):
        dice = self.dice
        client = dice.choice(frames.CLIENTS)
        if message is None:
            name = dice.choice(names.NAMES)
            addresses = [dice.choice(frames.SERVERS + [f"203.0.113.{dice.randrange(8, 24)}"]) for _ in range(dice.choice([0, 1, 1, 1, 2, 3, 5]))]
            message = names.answer(dice, name, addresses, kind=dice.choice([1] * 12 + [28, 65]))
            if dice.random() < 0.3:
                message = names.hostile(dice, message)
        length = None if dice.random() < 0.96 else dice.choice([0, 7, 8, 9, 20, 21, len(message) + 7, len(message) + 9, 0xFFFF])
        datagram = frames.udp("192.0.2.53", client, 53, 40000, message, length)
        frame = frames.ethernet(frames.CLIENT_MACS[0], frames.ROUTER_MAC, 0x0800, frames.ipv4("192.0.2.53", client, 17, datagram))
        self.finish("post", dice.choice(WIRELESS + ["eth0", "wlanX"]), frame)

    # --- time and the report ----------------------------------------------------------------------------------------

    def time(self):
        dice = self.dice
        if dice.random() < 0.5:
            self.add("clock", seconds=dice.choice([1, 5, 6, 60, 61, 299, 300, 301, 86400, -60, -86400, 0x7FFFFFFF]))
        else:
            self.add("ticks", ticks=dice.choice([1, 100, 5999, 6000, 6001, 12000]))

    def report(self):
        dice = self.dice
        if dice.random() < 0.4:
            text = dice.choice([b"all", b"all", b"mirel", b"wlan-1-1", b"wlan-3-8\n", b"203.0.113.10", b"198.51.100.7\n", b"wlan-1-9", b"wlan-4-1", b"wlan-0-1",
                                b"wlan-x", b"10.0.0.256", b"10.0.0.-1", b"all\n", b"", b"wlan-1-1.5", b"1.2.3", b"1.2.3.4.5", b" 203.0.113.10", b"mirel\n", b"MIREL",
                                b"wlan-1-1" + b"x" * 11, b"wlan-1-1" + b"x" * 12, b"x" * 40, b"all\0x", b"wlan-1", b"203.0.113.10x", b"0203.00.0113.010",
                                b"wlan-\xe9", b"4294967499.0.113.10"])
            step = {"op": "proc_write", "text": text.hex()}
            if dice.random() < 0.08:
                step["border"] = dice.randrange(len(text) + 1)
                step["behind"] = dice.choice(["none", "read_only"])
            self.steps.append(step)
            return
        length = dice.choice([4096, 4096, 4096, 0, 1, 44, 45, 47, 60, 80, 100, 120, 150, 200, 300, 500, dice.randrange(600)])
        step = {"op": "proc_read", "length": length}
        if dice.random() < 0.08:
            step["position"] = dice.choice([1, 50, 1 << 40])
        if dice.random() < 0.05 and length:
            step["border"] = dice.randrange(length + 1)
            step["behind"] = dice.choice(["none", "read_only"])
        self.steps.append(step)

    def trouble(self):
        dice = self.dice
        if dice.random() < 0.8:
            self.add("fail_allocation", number=dice.choice([1, 1, 2, 2, 3, 4, 5]))
            dice.choice([self.command, self.command, self.request, self.dns, self.report])()
            self.add("fail_allocation", number=0)
        else:
            self.add("memory", full=True)
            for _ in range(dice.randrange(1, 4)):
                dice.choice([self.command, self.request, self.dns, self.report])()
            self.add("memory", full=False)

    def full_cache(self):
        """More addresses than the cache takes; rare, for it is long."""
        name = self.dice.choice(names.NAMES[:3])
        for start in range(0, 18000, 3000):
            client = frames.CLIENTS[0]
            datagram = frames.udp("192.0.2.53", client, 53, 40000, names.many(name, 0x0A000000 + start, 3000))
            frame = frames.ethernet(frames.CLIENT_MACS[0], frames.ROUTER_MAC, 0x0800, frames.ipv4("192.0.2.53", client, 17, datagram))
            self.add("post", device="wlan-1-1", frame=frame.hex())

    # --- a sequence -------------------------------------------------------------------------------------------------

    def sequence(self):
        dice = self.dice
        if dice.random() < 0.2:
            self.add("ticks", ticks=dice.choice([1, 6000]))
        self.devices()
        self.load()
        if not self.loaded:
            return self.steps
        self.begin()
        moves = [self.command] * 7 + [self.request] * 9 + [self.reply] * 5 + [self.datagram] * 3 + [self.dns] * 5 + [self.time] * 2 + [self.report] * 3
        moves += [self.portal_on]
        rare = [self.trouble, self.trouble, self.change_device, self.open_or_release, self.open_or_release, self.reload]
        # Each sequence leans to one side, so that its state gets deep there.
        moves += [dice.choice([self.command, self.request, self.dns, self.report])] * dice.choice([0, 10, 20])
        for _ in range(dice.choice([30, 60, 120, 200])):
            dice.choice(moves if dice.random() < 0.96 else rare)()
            if not self.loaded:
                break
        if self.loaded and dice.random() < 0.002:
            self.full_cache()
            for _ in range(20):
                dice.choice([self.report, self.dns, self.request, self.time])()
        return self.steps


class KernelGenerator(Generator):
    """What a real machine can be made to do, by kernel_player.py: no failures on order, frames that a bridge takes."""

    PORTS = sorted(set(WIRELESS + ["eth0", "wlan-1-9", "wlan-1-15", "wlan-3-16", "wlan-2-14", "wlan-4-14", "wlan-2-0", "wlan-4-1", "wlan-x", "wlan",
                                   "wlan--1-1", "wlan-1-17"]))
    # The thread sleeps for so long; a sleep that ends about when it wakes could see it or not.
    PERIOD = 6144
    MARGIN = 100

    def devices(self):
        self.add("device", name="br0", mac=frames.AP_MAC.hex(), ipv4=[frames.AP], bridge=None)
        for name in self.PORTS:
            self.add("device", name=name, mac="0200000000aa", ipv4=None, bridge="br0")

    def change_device(self):
        dice = self.dice
        self.add("device", name="br0", mac=dice.choice([frames.AP_MAC, frames.MOVED_AP_MAC]).hex(),
                 ipv4=dice.choice([[frames.AP], [frames.MOVED_AP], [], [frames.SOCIAL_LOGIN], [frames.MOVED_AP, frames.AP]]), bridge=None)

    def load(self):
        self.add("load")
        self.loaded = True
        self.ticks_since_load = 0

    def open_or_release(self):
        if self.open and self.dice.random() < 0.5:
            self.add("release")
            self.open = False
        elif not self.open:
            self.add("open")
            self.open = True

    def trouble(self):
        pass

    def full_cache(self):
        pass

    def command(self, number=None):
        super().command(number)
        step = self.steps[-1]
        step.pop("compat", None)
        # Command 2 is answered by the kernel's file layer: no program can reach the module with it.
        if not self.open or step["command"] == 2:
            self.steps.pop()

    def portal_on(self):
        if self.open:
            super().portal_on()

    def device(self):
        return self.dice.choice(WIRELESS if self.dice.random() < 0.86 else self.PORTS)

    def time(self):
        dice = self.dice
        if dice.random() < 0.5:
            self.add("clock", seconds=dice.choice([1, 5, 6, 60, 61, 299, 300, 301, 86400, -60, -86400]))
            return
        ticks = dice.choice([100, 6300, 12500])
        if (self.ticks_since_load + ticks + self.MARGIN) % self.PERIOD <= 2 * self.MARGIN:
            ticks += 3 * self.MARGIN
        self.ticks_since_load += ticks
        self.add("ticks", ticks=ticks)

    def add(self, op, **keys):
        if op in ("pre", "post") and not self.bridge_takes(op, keys):
            return
        super().add(op, **keys)

    def bridge_takes(self, op, keys):
        frame = bytes.fromhex(keys["frame"])
        keys.pop("layout", None)
        keys.pop("writable", None)
        if keys.get("firewall_mark") is not None:
            keys.pop("mark", None)
        if len(frame) < 14 or keys["device"] not in self.PORTS:
            return False
        # A tag is taken off before the hooks; groups that no bridge forwards do not come to them, nor do senders without a name.
        if frame[12:14] in (b"\x81\x00", b"\x88\xa8") or frame[:5] == bytes.fromhex("0180c20000"):
            return False
        if op == "pre":
            return frame[6] & 1 == 0 and frame[6:12] not in (bytes(6), frames.AP_MAC, frames.MOVED_AP_MAC)
        return frame[:6] in frames.CLIENT_MACS


def sequence(seed, number):
    return Generator(seed, number).sequence()


def for_kernel(seed, number):
    return KernelGenerator(seed, number).sequence()
