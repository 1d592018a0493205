"""Moves of several steps that belong together: what the random ones alone would seldom bring about."""

import struct

import answers
import frames
import names
import records
from cast import strange_interface
from frames import ACK, FIN, PSH, SYN

ON = 1
CACHE_CAPACITY = 16384
LIST_SLOTS = 1034


class Scenes:
    def __init__(self, generator):
        self.generator = generator
        self.cast = generator.cast
        self.dice = generator.dice
        self.packets = generator.packets

    def all(self):
        return [
            self.portal,
            self.clients,
            self.garden,
            self.connection,
            self.mirel,
            self.dns_filter,
            self.logout,
            self.companion,
            self.disconnected,
            self.names_of_an_address,
            self.no_memory_for_a_name,
            self.cut_request,
            self.no_address,
            self.social_login,
            self.guarded_port,
            self.stranger,
            self.default_rules,
            self.ping,
            self.no_memory_for_a_station,
            self.flush,
            self.expiry,
            self.listing,
            self.special_mark,
            self.moved_access_point,
        ]

    def add(self, step):
        self.generator.append(step)

    def ioctl(self, command, record):
        self.add(records.ioctl(command, record))

    def set_row(self, command, row, value, text=b""):
        self.ioctl(1, struct.pack("<IiI", command, row, value) + records.field(text, 16))

    def set_clients(self, command, name, mac, owe=b"", behavior=0, status=0):
        head = struct.pack("<III", command, behavior, status)
        self.ioctl(8, head + records.field(name, 16) + records.field(owe, 16) + mac + bytes(2))

    def home(self):
        """An interface with its row, and one of the cast's stations."""
        place = self.dice.randrange(len(self.cast.rows))
        return self.cast.rows[place], self.cast.interfaces[place], self.dice.choice(self.cast.macs)

    def request(self, name, mac, destination=None, service=None, flags=SYN):
        connection = self.packets.new_connection(name.decode(), mac, destination, service)
        self.add(self.packets.segment(connection, flags, {}))
        return connection

    # --- scenes -----------------------------------------------------------------------------------------------------

    def portal(self):
        """A portal goes on, with what belongs to it."""
        dice = self.dice
        row, _, _ = self.home()
        self.set_row(1, row, dice.choice([1, 1, 1, 1, 2, 7, 7, 8]))
        if self.cast.rarely(2):
            self.set_row(5, row, dice.choice([0, 1, 2]))
        if self.cast.rarely(3):
            self.ioctl(3, struct.pack("<IiIi", 0, row, dice.choice([0, 1]), 0).ljust(records.RECORD_BYTES[3], b"\0"))

    def cut_request(self):
        """A request that ends too early, for a portal in any mode."""
        row, name, mac = self.home()
        self.set_row(1, row, self.dice.choice([1, 7, 8]))
        for _ in range(self.dice.randrange(1, 4)):
            step = self.packets.segment(self.packets.new_connection(name.decode(), mac), SYN, {})
            end = self.dice.randrange(14, 14 + 40)
            self.add({"op": "pre", "device": step["device"], "frame": step["frame"][: 2 * end]})

    def ping(self):
        """Somebody looks for the access point, through a portal that lets that pass or not."""
        dice = self.dice
        row, name, mac = self.home()
        self.set_row(1, row, dice.choice([1, 7, 7, 7, 8]))
        source = dice.choice(self.cast.clients)
        destination = dice.choice([frames.AP, frames.AP, frames.AP, frames.ROUTER, frames.MOVED_AP, frames.PRIVATE[0]])
        packet = frames.ipv4(source, destination, dice.choice([1, 1, 1, 2]), b"\x08\x00ping")
        frame = frames.ethernet(frames.AP_MAC, mac, 0x0800, packet)
        self.add(self.packets.finish("pre", name.decode(), frame))

    def no_memory_for_a_station(self):
        """The copy of the record takes memory first, and the station next."""
        _, name, mac = self.home()
        self.generator.fail_allocation(self.dice.choice([1, 2, 2, 2]))
        self.set_clients(self.dice.choice([0, 2, 4, 22, 24, 26, 31]), name, mac)
        self.generator.fail_allocation(0)

    def flush(self):
        """Lists are emptied: an interface's, everybody's, or nobody's."""
        _, name, mac = self.home()
        name = self.dice.choice([name, b"all", strange_interface(self.dice)])
        self.set_clients(self.dice.choice([9, 30, 34]), name, mac)

    def social_login(self):
        """A request to the social-login address, and the answer."""
        dice = self.dice
        row, name, mac = self.home()
        if self.cast.rarely(2):
            self.set_row(1, row, dice.choice([1, 1, 2, 7, 8]))
        connection = self.packets.new_connection(
            name.decode(), mac, frames.SOCIAL_LOGIN, dice.choice([80, 443, 443, 22])
        )
        step = self.packets.segment(connection, dice.choice([SYN, SYN, ACK]), {})
        self.add({**step, "writable": False} if self.cast.rarely(4) else step)
        self.add(self.packets.reply(connection, dice.choice([SYN | ACK, FIN | ACK]), dice.choice([83, 84])))

    def guarded_port(self):
        """A request to the access point's own ports, from where it should come and from where not."""
        dice = self.dice
        row, name, mac = self.home()
        self.set_row(1, row, dice.choice([0, 0, 1, 8]))
        http = 10081 + 10000 * (row // 8) + row % 8
        ports = [*range(82, 92), http, http + 363, dice.choice([10081, 20088, 30451]), 10089, 80]
        device = dice.choice([name, name, b"eth0"])
        self.request(device, mac, frames.AP, dice.choice(ports), dice.choice([SYN, ACK]))

    def stranger(self):
        """A command for an interface that may not be one."""
        dice = self.dice
        command = dice.choice(records.CLIENT_COMMANDS)
        name, owe = strange_interface(dice), strange_interface(dice)
        self.set_clients(command, name, dice.choice(self.cast.macs), owe, dice.choice([1, 2, 3]), 2)

    def default_rules(self):
        """Rules for everybody, some of them empty, and what can be read of them."""
        count = self.dice.randrange(4)
        rules = b"".join(self.dice.choice([records.default_rule(self.cast), bytes(140)]) for _ in range(count))
        self.ioctl(3, (struct.pack("<IiIi", 1, 0, 0, count) + rules).ljust(records.RECORD_BYTES[3], b"\0"))
        self.ioctl(4, struct.pack("<IiIi", 5, 0, 77, 99).ljust(records.RECORD_BYTES[4], b"\0"))

    def no_address(self):
        """A request to nobody, which the rules are asked about all the same."""
        row, name, mac = self.home()
        self.set_row(1, row, self.dice.choice([1, 2]))
        rule = struct.pack("<IiIi", 2, row, ON, 1) + records.address_rule(self.cast)
        self.ioctl(3, rule.ljust(records.RECORD_BYTES[3], b"\0"))
        self.ioctl_level(self.dice.choice([0, 0, 1, 3]))
        self.request(name, mac, "0.0.0.0", self.dice.choice([80, 443]))
        self.ioctl_level(3)

    def clients(self):
        """A station comes onto a list or leaves it, and its list is looked at."""
        dice = self.dice
        _, name, mac = self.home()
        self.set_clients(
            dice.choice([0, 1, 2, 3, 4, 5, 22, 23, 24, 25, 26, 27, 31, 32]), name, mac, self.cast.companion()
        )
        kind = dice.randrange(3)
        if kind == 0:
            self.add(records.command(self.cast, 10))
        elif kind == 1:
            self.request(name, mac)
        elif self.cast.rarely(4):
            self.add(records.command(self.cast, 9))

    def garden(self):
        """Rules for a row, an answer for a name, and a request to an address of it."""
        dice = self.dice
        row, name, mac = self.home()
        if self.cast.rarely(3):
            row = 27
        self.ioctl(3, records.garden_setting(self.cast, command=dice.choice([1, 2, 2, 3])))
        rules = b"".join(dice.choice([records.domain_rule, records.address_rule])(self.cast) for _ in range(2))
        self.ioctl(3, (struct.pack("<IiIi", 2, row, ON, 2) + rules).ljust(records.RECORD_BYTES[3], b"\0"))
        server = dice.choice(self.cast.servers)
        self.add(self.packets.dns(self.cast.name(), [server]))
        self.request(name, mac, server, dice.choice([80, 443, 8080]), dice.choice([SYN, ACK]))

    def connection(self):
        """A whole connection through the portal, from its SYN to its end."""
        dice = self.dice
        row, name, mac = self.home()
        service = dice.choice([80, 80, 443])
        connection = self.request(name, mac, service=service)
        port = 10081 + 10000 * (row // 8) + row % 8 + (363 if service == 443 else 0)
        port = dice.choice([port, port, port, 90, 91, 83, 86, 82])
        self.add(self.packets.reply(connection, SYN | ACK, port))
        for _ in range(dice.randrange(3)):
            self.add(self.packets.segment(connection, dice.choice([ACK, PSH | ACK, SYN]), {}))
            self.add(self.packets.reply(connection, PSH | ACK, port))
        if not self.cast.rarely(4):
            self.add(self.packets.reply(connection, FIN | ACK, port))
            if self.cast.rarely(2):
                self.add(self.packets.reply(connection, ACK, port))

    def mirel(self):
        dice = self.dice
        _, name, mac = self.home()
        self.set_row(7, 3, dice.choice([0, 1, 1, 1, 7, 8]))
        self.set_clients(dice.choice([22, 22, 22, 24, 25, 23]), name, mac)
        if self.cast.rarely(3):
            self.ioctl(3, records.garden_setting(self.cast, command=3))
        connection = self.request(name, mac, service=dice.choice([80, 443, 22]))
        self.add(self.packets.reply(connection, dice.choice([SYN | ACK, FIN | ACK]), dice.choice([86, 87])))

    def dns_filter(self):
        dice = self.dice
        _, name, mac = self.home()
        self.set_row(9, 0, dice.choice([0, 1, 1, 0xFFFFFFFF]))
        connection = self.request(name, mac, frames.DNS_FILTER, dice.choice([80, 443, 53]))
        self.add(self.packets.reply(connection, dice.choice([SYN | ACK, FIN | ACK]), dice.choice([88, 89])))

    def logout(self):
        dice = self.dice
        row, name, mac = self.home()
        text, destination = dice.choice(records.LOGOUTS)
        self.set_row(8, row, 0, text)
        self.set_clients(dice.choice([2, 4]), name, mac)
        if self.cast.rarely(4):
            _, destination = dice.choice(records.LOGOUTS)
        connection = self.request(name, mac, destination, dice.choice([80, 443, 22]))
        self.add(self.packets.reply(connection, dice.choice([SYN | ACK, FIN | ACK]), 82))

    def companion(self):
        """A companion interface is paired, and frames come from it."""
        _, name, mac = self.home()
        owe = self.dice.choice(self.cast.companions)
        paired = strange_interface(self.dice) if self.cast.rarely(3) else name
        self.set_clients(12, paired, mac, owe)
        self.request(owe, mac)
        if self.cast.rarely(4):
            head = struct.pack("<III", 14, 7, 8) + records.field(b"before", 16) + records.field(owe, 16)
            self.ioctl(9, head.ljust(records.RECORD_BYTES[9], b"\0"))
        if self.cast.rarely(8):
            self.set_clients(16, name, mac)

    def disconnected(self):
        dice = self.dice
        _, name, mac = self.home()
        self.set_clients(10, name, mac, behavior=dice.choice([0, 1, 2, 2, 3]), status=dice.choice([0, 2, 2, 2]))
        for _ in range(dice.randrange(1, 3)):
            dice.choice([lambda: self.request(name, mac), lambda: self.add(self.packets.datagram())])()

    def names_of_an_address(self):
        """Several names for one address, under rules that like some of them."""
        server = self.dice.choice(self.cast.servers)
        for _ in range(self.dice.randrange(2, 5)):
            self.add(self.packets.dns(self.dice.choice(self.cast.names), [server]))
        self.generator.select()
        self.generator.read()

    def no_memory_for_a_name(self):
        """A name that the rules like comes to a known address, and there is no memory for all of it."""
        row, _, _ = self.home()
        server = self.dice.choice(self.cast.servers)
        first, second = self.dice.sample(self.cast.names, 2)
        rule = struct.pack("<III", 0, 0, 0) + records.field(self.dice.choice([second, b"*"]), 128)
        self.ioctl(3, (struct.pack("<IiIi", 2, row, ON, 1) + rule).ljust(records.RECORD_BYTES[3], b"\0"))
        self.add(self.packets.dns(first, [server]))
        self.generator.fail_allocation(self.dice.choice([1, 1, 2, 2, 3, 4]))
        self.add(self.packets.dns(second, [server]))
        self.generator.fail_allocation(0)
        self.add({"op": "proc_write", "text": b"all".hex()})
        self.add({"op": "proc_read", "length": 4096})

    def expiry(self):
        """An answer grows old."""
        self.generator.dns()
        self.generator.move_clock(self.dice.choice([1, 59, 60, 61, 300, 301, 86401]))
        self.generator.wait(self.dice.choice([5999, 6000, 6001]))
        self.generator.read()

    def listing(self):
        """A list that is read piece by piece."""
        if self.cast.rarely(3):
            self.add(self.packets.dns(message=answers.one_bucket(self.cast.name(), self.dice.choice([15, 16, 17, 40]))))
        self.generator.select()
        for _ in range(self.dice.randrange(1, 5)):
            self.add({"op": "proc_read", "length": self.dice.randrange(60, 500)})

    def special_mark(self):
        """The firewall marks a packet between the two hooks."""
        dice = self.dice
        mark = dice.choice([5304, 5307, 5323, dice.randrange(5307, 5324), 5324, 5306, 5325])
        connection = self.packets.new_connection(service=dice.choice([80, 443, 22]))
        self.add(self.packets.segment(connection, dice.choice([SYN, SYN, ACK]), {"firewall_mark": mark}))
        port = dice.choice([82, 88, 89, 1025 + mark - 5307, 1042 + mark - 5307]) & 0xFFFF
        self.add(self.packets.reply(connection, dice.choice([SYN | ACK, FIN | ACK]), port))

    def moved_access_point(self):
        """Its address changes under a connection."""
        row, name, mac = self.home()
        connection = self.request(name, mac, service=80)
        address = self.dice.choice([frames.MOVED_AP, frames.SOCIAL_LOGIN, frames.AP])
        self.add({"op": "device", "name": "br0", "mac": frames.MOVED_AP_MAC.hex(), "ipv4": [address], "bridge": None})
        self.request(name, mac, service=80, flags=self.dice.choice([SYN, ACK]))
        self.add(self.packets.reply(connection, ACK, 10081 + 10000 * (row // 8) + row % 8))
        if not self.cast.rarely(3):
            self.generator.bridge()

    # --- long ones --------------------------------------------------------------------------------------------------

    def full_cache(self):
        """More addresses than the cache takes, from an empty one or not."""
        name = self.dice.choice(names.NAMES[:3])
        client = self.cast.clients[0]
        size = 3000
        for start in range(0, CACHE_CAPACITY + size, size):
            message = answers.many(name, start, size)
            datagram = frames.udp("192.0.2.53", client, 53, 40000, message)
            packet = frames.ipv4("192.0.2.53", client, 17, datagram)
            frame = frames.ethernet(self.cast.macs[0], frames.ROUTER_MAC, 0x0800, packet)
            self.add({"op": "post", "device": "wlan-1-1", "frame": frame.hex()})
            if start == 0 or start > CACHE_CAPACITY - size:
                # Not so loud in between, or not at all.
                self.ioctl_level(self.dice.choice([0, 1, 1, 2]))
        for _ in range(20):
            self.dice.choice([self.generator.report, self.generator.dns, self.generator.request, self.generator.time])()

    def ioctl_level(self, level):
        """Sets the debug level."""
        self.add({"op": "ioctl", "command": 11, "argument": level})

    def long_list(self):
        """More stations than a reply has room for."""
        command, query = self.dice.choice([(0, 6), (2, 7), (4, 8), (22, 20), (24, 21), (26, 28), (31, 33)])
        _, name, mac = self.home()
        for number in range(LIST_SLOTS + 3):
            self.set_clients(command, name, mac[:4] + struct.pack(">H", number))
        head = struct.pack("<III", query, 0, 0) + records.field(name, 16)
        self.ioctl(9, head.ljust(records.RECORD_BYTES[9], b"\0"))
