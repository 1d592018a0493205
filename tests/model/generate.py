"""Random sequences: random in what happens, and known in whom it happens to.

A seed and a number determine a sequence. Its few stations, ports, names and addresses come back all the time, so that
state builds up: connections meet their replies, answers meet their rules, records expire.
"""

import frames
import records
from cast import Cast, fresh
from packets import Packets
from scenes import Scenes

# Every so many sequences one of these happens, which are too long to happen by chance.
FULL_CACHE_EVERY = 100
LONG_LIST_EVERY = 100
FULL_CACHE_AT, LONG_LIST_AT = 7, 57

# fmt: off
SELECTIONS = [
    b"all", b"all", b"all", b"mirel", b"all\n", b"mirel\n", b"", b"MIREL", b"all\0x", b"alll", b"wlan-x", b"wlan-1",
    b"10.0.0.256", b"10.0.0.-1", b"1.2.3", b"1.2.3.4.5", b" 203.0.113.10", b"203.0.113.10x", b"0203.00.0113.010",
    b"203.0.113.10", b"203.0.113.10\n", b"198.51.100.7\n", b"4294967499.0.113.10", b"wlan-1-1.5",
    b"wlan-1-1" + b"x" * 11, b"wlan-1-1" + b"x" * 12, b"x" * 40, b"wlan-\xe9", b"%s%d",
]
# fmt: on
SECONDS = [1, 5, 6, 60, 61, 299, 300, 301, 86400, -1, -60, -86400, 0x7FFFFFFF, -0x7FFFFFFF - 0x70000000, 0x100000000]
TICKS = [1, 100, 5999, 6000, 6000, 6000, 6001, 12000]


class Generator:
    CAST = Cast

    def __init__(self, seed, number):
        self.dice = fresh(seed, number)
        self.cast = self.CAST(self.dice)
        self.packets = Packets(self.cast)
        self.scenes = Scenes(self)
        self.number = number
        self.steps = []
        self.is_open = False
        self.is_loaded = False

    def append(self, step):
        """Every step comes through here."""
        self.steps.append(step)

    def add(self, op, **keys):
        self.append({"op": op, **keys})

    # --- the machine ------------------------------------------------------------------------------------------------

    def devices(self):
        if not self.cast.rarely(20):
            self.bridge()
        names = self.cast.interfaces + self.cast.companions
        for name in dict.fromkeys([name.decode() for name in names] + ["eth0"] + self.cast.odd_devices):
            if name not in ("gone0", "br0"):
                self.port(name)
        if self.cast.rarely(4):
            self.add("device", name="br1", mac=frames.MOVED_AP_MAC.hex(), ipv4=["10.9.8.7"], bridge=None)

    def bridge(self):
        """The bridge of the access point, as it is nearly always, or in one of its other states."""
        if self.cast.rarely(6):
            addresses = self.dice.choice(
                [[], None, [frames.MOVED_AP, frames.AP], [frames.SOCIAL_LOGIN], [frames.MOVED_AP]]
            )
        else:
            addresses = [frames.AP]
        mac = frames.MOVED_AP_MAC if self.cast.rarely(8) else frames.AP_MAC
        self.add("device", name="br0", mac=mac.hex(), ipv4=addresses, bridge=None)

    def port(self, name):
        bridge = "br0"
        if name in ("free0", "lo") or self.cast.rarely(30):
            bridge = None
        elif self.cast.rarely(30):
            bridge = self.dice.choice(["br1", "br-with-long-nm"])
        is_unreachable = bridge is not None and (name == "broken0" or self.cast.rarely(60))
        self.add("device", name=name, mac="0200000000aa", ipv4=None, bridge=bridge, bridge_unreachable=is_unreachable)

    def change_device(self):
        kind = self.dice.randrange(3)
        if kind == 0:
            self.add("remove_device", name=self.dice.choice(["br0", "br0", "br1", self.cast.device()]))
        elif kind == 1:
            self.bridge()
        else:
            self.port(self.cast.device())

    def load(self):
        for _ in range(2):
            if self.cast.rarely(12):
                what = self.dice.choice(["hooks", "thread", "proc", "misc"])
                error = {} if what == "thread" else {"error": self.dice.choice([-12, -16, -1])}
                self.add("fail_registration", what=what, **error)
        # A device that cannot be registered ends the load; the next one finds it registered again.
        last = next((step for step in reversed(self.steps) if step["op"] == "load" or step.get("what") == "misc"), None)
        self.add("load")
        if last is not None and last["op"] == "fail_registration":
            self.load()
        else:
            self.is_loaded = True

    def reload(self):
        if self.is_open and not self.cast.rarely(10):
            self.release()
        self.add("unload")
        if not self.is_open:
            self.packets.connections.clear()
            if self.cast.rarely(4):
                self.time()
            self.load()
            self.begin()

    def open(self):
        """Twice as well: the second gets an error."""
        self.add("open")
        self.is_open = True

    def release(self):
        self.add("release")
        self.is_open = False

    def open_or_release(self):
        if self.is_open and self.cast.rarely(2):
            self.release()
        else:
            self.open()

    def fail_allocation(self, number):
        self.add("fail_allocation", number=number)

    def trouble(self):
        """Memory is short for a while."""
        dice = self.dice
        moves = [
            self.command,
            self.command,
            self.request,
            self.dns,
            self.dns,
            self.report,
            self.scenes.clients,
            self.scenes.garden,
        ]
        if dice.random() < 0.8:
            self.fail_allocation(dice.choice([1, 1, 1, 2, 2, 3, 4, 5, 6]))
            for _ in range(dice.randrange(1, 3)):
                dice.choice(moves)()
            if not self.cast.rarely(4):
                self.fail_allocation(0)
        else:
            self.add("memory", full=True)
            for _ in range(dice.randrange(1, 5)):
                dice.choice(moves)()
            self.add("memory", full=False)

    # --- moves ------------------------------------------------------------------------------------------------------

    def command(self, number=None):
        self.append(records.command(self.cast, number))

    def request(self):
        self.append(self.packets.request())

    def reply(self):
        self.append(self.packets.reply())

    def datagram(self):
        self.append(self.packets.datagram())

    def dns(self):
        self.append(self.packets.dns())

    def time(self):
        if self.cast.rarely(2):
            self.move_clock(self.dice.choice(SECONDS))
        else:
            self.wait(self.dice.choice(TICKS))

    def move_clock(self, seconds):
        self.add("clock", seconds=seconds)

    def wait(self, ticks):
        self.add("ticks", ticks=ticks)

    def report(self):
        if self.dice.random() < 0.4:
            self.select()
        else:
            self.read()

    def select(self):
        dice = self.dice
        kind = dice.randrange(4)
        if kind <= 1:
            text = dice.choice(SELECTIONS)
        elif kind == 2:
            text = self.cast.interface() + dice.choice([b"", b"\n"])
        else:
            text = dice.choice(self.cast.servers).encode()
        step = {"op": "proc_write", "text": text.hex()}
        if self.cast.rarely(12):
            step["border"] = dice.randrange(len(text) + 1)
            step["behind"] = dice.choice(["none", "read_only"])
        self.append(step)

    def read(self):
        dice = self.dice
        length = dice.choice(
            [4096, 4096, 4096, 0, 1, 40, 44, 45, 47, 60, *(dice.randrange(end) for end in (300, 300, 900))]
        )
        step = {"op": "proc_read", "length": length}
        if self.cast.rarely(14):
            step["position"] = dice.choice([1, 50, 1 << 40])
        if self.cast.rarely(20):
            step["border"] = dice.randrange(length + 1)
            step["behind"] = dice.choice(["none", "read_only"])
        self.append(step)

    # --- a sequence -------------------------------------------------------------------------------------------------

    def begin(self):
        """The daemon comes."""
        self.open()
        self.append(records.debug_level(self.cast))
        if not self.cast.rarely(6):
            self.command(6)
        for _ in range(self.dice.randrange(4)):
            self.scenes.portal()

    def moves(self):
        """What happens in this sequence, some of it more often: each has a side on which its state gets deep."""
        dice = self.dice
        kinds = {
            self.command: 8,
            self.request: 9,
            self.reply: 4,
            self.datagram: 3,
            self.dns: 5,
            self.time: 2,
            self.report: 3,
            self.trouble: 1,
            self.change_device: 1,
            self.open_or_release: 0.4,
            self.reload: 0.3,
        }
        kinds.update({scene: 0.7 for scene in self.scenes.all()})
        leaning = dice.sample(list(kinds), 3)
        weights = [
            weight * (4 if kind in leaning else 0.2 if dice.random() < 0.15 else 1) for kind, weight in kinds.items()
        ]
        return list(kinds), weights

    def sequence(self):
        dice = self.dice
        if self.cast.rarely(5):
            self.time()
        self.devices()
        self.load()
        self.begin()
        kinds, weights = self.moves()
        end = len(self.steps) + dice.choice([20, 40, 80, 150, 250])
        while len(self.steps) < end:
            dice.choices(kinds, weights)[0]()
        self.long_scenes()
        return self.steps

    def long_scenes(self):
        if self.number % FULL_CACHE_EVERY == FULL_CACHE_AT:
            self.scenes.full_cache()
        if self.number % LONG_LIST_EVERY == LONG_LIST_AT:
            self.scenes.long_list()


def sequence(seed, number):
    return Generator(seed, number).sequence()
