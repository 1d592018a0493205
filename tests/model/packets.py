"""Steps with packets: requests, replies, datagrams and answers of a sequence's cast."""

import answers
import frames
from frames import ACK, FIN, PSH, RST, SYN

SERVICES = [80] * 6 + [443] * 4 + [8080, 53, 22, 82, 83, 84, 85, 86, 87, 88, 90, 91, 1030, 10081, 10444, 10082, 30451]
REPLY_PORTS = [80, 443, *range(81, 93), 1024, 1025, 1041, 1042, 1058, 1059, 10081, 10444, 10082, 30088, 30451]
# The ports of the access point's own services that are no interface's.
FIXED_PORTS = [82, 83, 84, 86, 87, 88, 89, 90, 91, 1025, 1030, 1042, 1058]
MARKS = [5200, 5201, 5220, 5247, 5302, 5303, 5304, 5304, 5305, 5306, 5307, 5310, 5323, 5324, 5324, 5325, 0, 77]
DNS_SERVER = "192.0.2.53"


class Packets:
    def __init__(self, cast):
        self.cast = cast
        self.dice = cast.dice
        # (device, MAC, address, port, destination, service) of requests so far.
        self.connections = []
        # Addresses that answers gave.
        self.answered = []

    def finish(self, op, device, frame, **keys):
        """A step with the frame, which may come to harm on its way."""
        dice = self.dice
        harm = dice.random()
        if harm < 0.14:
            frame = frames.mutate(dice, frame)
            if harm < 0.03:
                frame = frames.mutate(dice, frame)
        elif harm < 0.17 and len(frame) > 14:
            frame += bytes(dice.randrange(1, 20))
        if dice.random() < 0.1:
            keys["layout"] = "headers_only"
        if dice.random() < 0.04:
            keys["writable"] = False
        return {"op": op, "device": device, "frame": frame.hex(), **keys}

    def marks(self):
        """What the firewall says about a packet, and what it may carry before."""
        dice = self.dice
        keys = {}
        if self.cast.rarely(8):
            keys["firewall_mark"] = dice.randrange(5195, 5330) if self.cast.rarely(8) else dice.choice(MARKS)
        if self.cast.rarely(30):
            keys["mark"] = dice.choice(MARKS)
        return keys

    def new_connection(self, device=None, mac=None, destination=None, service=None):
        cast = self.cast
        if destination is None:
            destination = (
                self.dice.choice(self.answered[-4:]) if self.answered and cast.rarely(4) else cast.destination()
            )
        return (
            device or cast.device(),
            mac or cast.mac(),
            self.dice.choice(cast.clients),
            self.dice.choice(cast.client_ports),
            destination,
            service or self.dice.choice(SERVICES),
        )

    def segment(self, connection, flags, keys):
        """A TCP segment of a client."""
        dice = self.dice
        device, mac, source, port, destination, service = connection
        if flags & SYN:
            self.connections.append(connection)
        partial = dice.random() < 0.2
        payload = b"" if flags & SYN else dice.choice([b"", b"GET", b"x" * 60])
        options = bytes(dice.choice([0, 0, 0, 4, 40]))
        segment = frames.tcp(source, destination, port, service, flags, payload, partial=partial, options=options)
        packet = frames.ipv4(source, destination, 6, segment, options=bytes([1]) * dice.choice([0, 0, 0, 0, 4, 40]))
        frame = frames.ethernet(dice.choice([frames.ROUTER_MAC, frames.AP_MAC]), mac, 0x0800, packet)
        if partial:
            # A stack that leaves its sum to the hardware sends whole segments.
            return {"op": "pre", "device": device, "frame": frame.hex(), "checksum": "partial", **keys, **self.layout()}
        return self.finish("pre", device, frame, **keys)

    def layout(self):
        keys = {"layout": "headers_only"} if self.cast.rarely(8) else {}
        if self.cast.rarely(20):
            keys["writable"] = False
        return keys

    def request(self):
        is_known = self.connections and self.dice.random() < 0.5
        connection = self.dice.choice(self.connections[-6:]) if is_known else self.new_connection()
        flags = self.dice.choice([SYN, SYN, SYN, ACK, PSH | ACK, FIN | ACK, RST, SYN | ACK, SYN | FIN | RST, 0])
        return self.segment(connection, flags, self.marks())

    def reply(self, connection=None, flags=None, service=None):
        """A segment that the access point, or somebody who looks like it, sends to a client."""
        dice = self.dice
        if connection is None:
            is_known = self.connections and dice.random() < 0.85
            connection = dice.choice(self.connections[-6:]) if is_known else self.new_connection()
        device, mac, client, port, _, _ = connection
        if self.cast.rarely(4):
            device = dice.choice(["eth0", "lo", self.cast.device()])
        source = (
            dice.choice([frames.MOVED_AP, "203.0.113.10", frames.SOCIAL_LOGIN]) if self.cast.rarely(7) else frames.AP
        )
        if flags is None:
            flags = dice.choice([SYN | ACK, ACK, PSH | ACK, FIN | ACK, FIN, RST | ACK, FIN | ACK | PSH])
        if service is None:
            row = dice.choice(self.cast.rows)
            own = 10081 + 10000 * (row // 8) + row % 8
            usual = [own, own, own + 363, *dice.sample(FIXED_PORTS, 3)]
            service = dice.choice(REPLY_PORTS if self.cast.rarely(4) else usual)
        partial = dice.random() < 0.4
        segment = frames.tcp(source, client, service, port, flags, b"page", partial=partial)
        frame = frames.ethernet(mac, frames.AP_MAC, 0x0800, frames.ipv4(source, client, 6, segment))
        if partial:
            return {"op": "post", "device": device, "frame": frame.hex(), "checksum": "partial", **self.layout()}
        return self.finish("post", device, frame)

    def datagram(self):
        """What is no TCP."""
        dice = self.dice
        mac, source, destination = self.cast.mac(), dice.choice(self.cast.clients), self.cast.destination()
        kind = dice.randrange(8)
        if kind <= 2:
            ports = dice.choice([(68, 67), (67, 68), (40000, 53), (53, 40000), (40000, 123), (40000, 68), (123, 123)])
            packet = frames.ipv4(source, destination, 17, frames.udp(source, destination, *ports, b"data"))
            frame = frames.ethernet(frames.ROUTER_MAC, mac, 0x0800, packet)
        elif kind == 3:
            protocol = dice.choice([1, 1, 1, 2, 47, 50, 0, 255])
            frame = frames.ethernet(
                frames.ROUTER_MAC, mac, 0x0800, frames.ipv4(source, destination, protocol, b"\x08\x00ping")
            )
        elif kind == 4:
            frame = frames.arp(mac)
        elif kind == 5:
            # Bytes of its addresses lie where IPv4 has its own.
            payload = dice.choice([bytes(20), frames.tcp(source, destination, 50000, 80, SYN), b""])
            frame = frames.ipv6(frames.ROUTER_MAC, mac, payload, dice.choice([6, 17, 58, 0]), (source, destination))
        elif kind == 6:
            ether_type = dice.choice([0x886B, 0x886C, 0x888E, 0x8100, 0x0004, 0x0800, 0x86DD])
            # The two that always pass do so whoever sends them.
            sender = dice.choice(frames.ODD_MACS) if ether_type in (0x886B, 0x886C) and self.cast.rarely(2) else mac
            frame = frames.ethernet(frames.AP_MAC, sender, ether_type, bytes(dice.randrange(30)))
        else:
            frame = bytes(dice.randrange(256) for _ in range(dice.randrange(60)))
        return self.finish(dice.choice(["pre", "pre", "pre", "post"]), self.cast.device(), frame, **self.marks())

    def dns(self, name=None, addresses=None, message=None):
        """An answer on its way to a client."""
        cast, dice = self.cast, self.dice
        if message is None:
            name = cast.name() if name is None else name
            if addresses is None:
                count = dice.choice([0, 1, 1, 1, 2, 3, 5])
                addresses = [dice.choice(cast.servers + [f"203.0.113.{dice.randrange(8, 24)}"]) for _ in range(count)]
            self.answered += addresses
            message = answers.answer(cast, name, addresses)
            if cast.rarely(4):
                message = answers.hostile(cast, message)
        client = dice.choice(cast.clients)
        length = None
        if cast.rarely(25):
            length = dice.choice([0, 7, 8, 9, 20, 21, len(message) + 7, len(message) + 9, 0xFFFF])
        datagram = frames.udp(DNS_SERVER, client, 53, 40000, message, length)
        options = bytes([1]) * dice.choice([0, 0, 0, 0, 0, 4, 40])
        frame = frames.ethernet(
            cast.mac(), frames.ROUTER_MAC, 0x0800, frames.ipv4(DNS_SERVER, client, 17, datagram, options=options)
        )
        device = dice.choice(["eth0", "wlanX", "lo"]) if cast.rarely(10) else cast.device()
        return self.finish("post", device, frame)
