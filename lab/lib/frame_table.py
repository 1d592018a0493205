"""Sends the frames of a table into the bridge and holds what became of each against the table.

usage: frame_table.py record|check|flood TABLE STATE --from PLACE --forms FORM[+FORM...] [--column NAME] [--source MAC]
                      [--place NAME=NAMESPACE/DEVICE ...] [--marker PLACE] [--pass-through]

A line of TABLE is "FRAME CHANGE... | verdict | verdict ...", as lab/lib/frame_bytes.py has the words; its first line names
the columns.  A number in a change may be a range or a list (cut=0-37 or cut=0-3,9): a line then stands for that many
frames.  FORM is a way in (lab/lib/frame_wire.py), its number a range too.

"flood" sends the frames again and again, without a look at them, until it is killed.  "record" is done without the module:
STATE then holds where each frame arrives when nobody but the bridge has a say.  "check" compares with it:

    same            where it came out without the module, with the same bytes, and nowhere else
    drop            nowhere; without the module it came out somewhere
    redirect:PORT   at the access point alone, its destination and both checksums rewritten and nothing else
    undone          where it came out without the module, its source rewritten to the server that was asked
    undone-once     the same at one place and as it was at all others: it ended the connection there

A frame is numbered by one of its MAC addresses: the source, or with --source (a client that the module knows) the
destination; then its IPv4 identification has the number too, for when the destination is rewritten.

In every verdict the listener named "port" ("port-out" for what leaves by it), which shares the data with what the hooks
get, holds the frame as it was sent.
With --pass-through the bridge's netfilter looks at IPv4 frames after the module: it throws away what is no valid IPv4
and cuts what lies behind the total length, so a redirected frame without a VLAN tag meets that as well.
"""

import argparse
import errno
import itertools
import json
import re
import struct
import sys
import time

from frame_bytes import (ACCESS_POINT_MAC, ETHERNET, GATEWAY_MAC, change_frame, good_frame, has_right_sums, ones_sum,
                         redirected, undone)
from frame_wire import Listener, Sender, TapSender, stay_on_one_processor, wait_readable

BATCH = 64
BY_SOURCE, BY_DESTINATION = b"\x02\0\x07", b"\x02\0\x08"
MARKER_NUMBER = 0xFFFFFF
# Every connection that a reply of a table belongs to was opened to this server, by way of the gateway.
SERVER = ("203.0.113.10", 80, GATEWAY_MAC)


def expand(word):
    """cut=0-2,7 -> cut=0 cut=1 cut=2 cut=7; words without a range or a list stay."""
    found = re.fullmatch(r"(.*[=:])(\d+(?:-\d+)?(?:,\d+(?:-\d+)?)*)", word)
    if not found or not re.search("[-,]", found[2]):
        return [word]
    numbers = []
    for part in found[2].split(","):
        first, _, last = part.partition("-")
        numbers += range(int(first), int(last or first) + 1)
    return [f"{found[1]}{number}" for number in numbers]


def read_table(name):
    """Columns' names, and for each frame its words, its bytes without a number, and a verdict for each column."""
    columns, frames = None, []
    for line in open(name):
        line = line.split("#")[0].strip()
        if not line:
            continue
        words, *verdicts = [part.strip() for part in line.split("|")]
        if columns is None:
            columns = verdicts
            continue
        if len(verdicts) != len(columns):
            raise SystemExit(f"not a verdict for each column: {line}")
        for chosen in itertools.product(*(expand(word) for word in words.split())):
            frame = good_frame(chosen[0])
            for change in chosen[1:]:
                frame = change_frame(frame, change)
            frames.append((" ".join(chosen), frame, dict(zip(columns, verdicts))))
    return columns, frames


def with_number(frame, number, source):
    tail = number.to_bytes(3, "big")
    if source is None:
        return frame[:6] + BY_SOURCE + tail + frame[12:]
    frame = BY_DESTINATION + tail + source + frame[12:]
    if len(frame) >= ETHERNET + 6 and frame[12:14] == b"\x08\0":
        old = frame[ETHERNET + 4:ETHERNET + 6]
        new = struct.pack("!H", number & 0xFFFF)
        frame = frame[:ETHERNET + 4] + new + frame[ETHERNET + 6:]
        if len(frame) >= ETHERNET + 12:
            before, = struct.unpack_from("!H", frame, ETHERNET + 10)
            total = ones_sum(struct.pack("!HH", ~before & 0xFFFF, ~struct.unpack("!H", old)[0] & 0xFFFF) + new)
            frame = frame[:ETHERNET + 10] + struct.pack("!H", ~total & 0xFFFF) + frame[ETHERNET + 12:]
    return frame


def number_of(frame):
    """The number of a frame that came out, or None for a frame of somebody else."""
    if frame[6:9] == BY_SOURCE:
        return int.from_bytes(frame[9:12], "big")
    if frame[0:3] == BY_DESTINATION:
        return int.from_bytes(frame[3:6], "big")
    return None


def through_netfilter(frame):
    """What the bridge's own netfilter leaves of an IPv4 frame, or None."""
    packet = frame[ETHERNET:]
    if len(packet) < 20 or packet[0] >> 4 != 4:
        return None
    size, (total,) = 4 * (packet[0] & 15), struct.unpack_from("!H", packet, 2)
    if size < 20 or len(packet) < size or ones_sum(packet[:size]) != 0xFFFF or not size <= total <= len(packet):
        return None
    return frame[:ETHERNET + total]


class Bench:
    def __init__(self, options):
        stay_on_one_processor()
        self.options = options
        self.places = {}
        # A flood has nobody who would read what listeners hold.
        for place in options.place if options.action != "flood" else ():
            name, _, where = place.partition("=")
            namespace, _, device = where.rpartition("/")
            self.places[name] = Listener(namespace, device, outgoing=name.endswith("-out"))
        namespace, _, device = options.sender.rpartition("/")
        self.sender = TapSender(device[4:]) if device.startswith("tap:") else Sender(namespace, device)
        self.source = bytes.fromhex(options.source.replace(":", "")) if options.source else None

    def run(self, jobs):
        """Sends (form, frame) jobs; for each, a list of [place, frame, tag]."""
        results = [[] for _ in jobs]
        for start in range(0, len(jobs), BATCH):
            for form, frame in jobs[start:start + BATCH]:
                self.sender.send(form, frame)
            self.sender.send("linear", self.marker())
            self.collect(results)
        for name, listener in self.places.items():
            if listener.lost():
                raise SystemExit(f"the listener at {name} lost frames")
        return results

    def flood(self, jobs):
        for number, (form, frame) in enumerate(itertools.cycle(jobs)):
            try:
                self.sender.send(form, frame)
            except OSError as error:
                # The cable or the port may go under way.
                if error.errno not in (errno.ENETDOWN, errno.ENOBUFS, errno.EIO, errno.EBADFD, errno.ENXIO):
                    raise
            # Others on this machine want to do something, too.
            if number % 16 == 0:
                time.sleep(0.02)

    def marker(self):
        """An EAPOL pre-authentication, which the shipped firewall rules let pass, too."""
        return BY_DESTINATION + bytes(3) + BY_SOURCE + MARKER_NUMBER.to_bytes(3, "big") + b"\x88\xc7" + bytes(46)

    def collect(self, results):
        """Until the marker, which passes every hook and comes last, is through."""
        last = self.places[self.options.marker]
        seen = False
        while not seen:
            if not wait_readable(last, 30):
                raise SystemExit("the last frame of a batch did not come through")
            seen = self.take(self.options.marker, results)
        for name in self.places:
            self.take(name, results)

    def take(self, name, results):
        marker = False
        for frame, tag, _ in self.places[name].arrivals():
            number = number_of(frame)
            if number == MARKER_NUMBER:
                marker = True
            elif number is not None:
                results[number].append([name, frame.hex(), tag])
            # Redirected; the machine that has this address says things of its own as well.
            elif frame[6:12] == self.source and frame[:6] == ACCESS_POINT_MAC:
                results[self.numbered_inside(frame, results)].append([name, frame.hex(), tag])
        return marker

    @staticmethod
    def numbered_inside(frame, results):
        number, = struct.unpack_from("!H", frame, ETHERNET + 4)
        if number >= len(results):
            raise SystemExit(f"a frame came out that nobody sent: {frame.hex()}")
        return number


def jobs_of(frames, options, bench):
    asked = [form for word in options.forms.split("+") for form in expand(word)]
    forms = [form for form in asked if bench.sender.gives(form)] or ["linear"]
    if forms != asked:
        print(f"    this kernel gives {'+'.join(forms)} alone of {options.forms}")
    jobs, what = [], []
    for words, frame, verdicts in frames:
        for form in forms:
            # A cut behind the end is no cut.
            if ":" in form and ETHERNET + int(form.split(":")[1]) > len(frame):
                continue
            jobs.append((form, with_number(frame, len(jobs), bench.source)))
            what.append((f"{words} ({form})", verdicts))
    return jobs, what


def is_port(arrival):
    return arrival[0].startswith("port")


def wanted(verdict, sent, before, options):
    """What must have come out, in order of places."""
    at_port = [arrival for arrival in before if is_port(arrival)]
    if verdict == "undone":
        return at_port + [[place, undone(sent, *SERVER).hex(), tag] for place, _, tag in before if place != at_port[0][0]]
    if verdict == "same":
        return before
    if verdict == "drop":
        return at_port
    kind, _, port = verdict.partition(":")
    if kind != "redirect":
        raise SystemExit(f"what verdict is {verdict}?")
    frame = redirected(sent, int(port))
    if has_right_sums(sent) and not has_right_sums(frame):
        raise SystemExit("the bench itself made a wrong checksum")
    tag = at_port[0][2] if at_port else ""
    if options.pass_through and not tag:
        frame = through_netfilter(frame)
    return at_port + ([["access-point", frame.hex(), tag]] if frame else [])


def once(want, before, got):
    """Of all places that got the frame one, whichever was first, has it rewritten."""
    rewritten_at = [place for place, frame, tag in got if [place, frame, tag] not in before]
    if len(before) < 3 or len(rewritten_at) != 1:
        return want
    return [new if new[0] == rewritten_at[0] else old for new, old in zip(sorted(want), sorted(before))]


def as_listened(frame, port):
    """A frame as listeners show it: where it came in, the outer VLAN tag is beside it."""
    tagged = frame[12:14] in (b"\x81\0", b"\x88\xa8")
    return frame[:12] + frame[16:] if tagged and not port.endswith("-out") else frame


def check(jobs, what, results, before, options):
    mistakes, counts, no_say = [], {}, 0
    for (form, frame), (name, verdicts), arrivals, old in zip(jobs, what, results, before):
        verdict = verdicts[options.column]
        elsewhere = [arrival for arrival in old if not is_port(arrival)]
        heard = [arrival for arrival in old if is_port(arrival)]
        if [arrival[1] for arrival in heard] != [as_listened(frame, place).hex() for place, _, _ in heard] or not heard:
            mistakes.append(f"{name}: the port's listener did not show the frame without the module: {old}")
            continue
        if not elsewhere:
            # The bridge alone lets nothing of it out, so nothing can be said of the module.
            no_say += 1
        want = wanted(verdict.removesuffix("-once"), as_listened(frame, heard[0][0]), old, options)
        if verdict == "undone-once":
            want = once(want, old, arrivals)
        if sorted(arrivals) != sorted(want):
            mistakes.append(f"{name}: wanted {verdict}: {sorted(want)}\n      got {sorted(arrivals)}")
        counts[verdict] = counts.get(verdict, 0) + 1
    print(f"    {options.column} from {options.sender}: {len(jobs)} frames: "
          + ", ".join(f"{count} {verdict}" for verdict, count in sorted(counts.items()))
          + (f"; {no_say} of them the bridge alone does not let out" if no_say else ""))
    if no_say and not options.pass_through:
        mistakes.append(f"{no_say} frames came out nowhere even without the module")
    for mistake in mistakes[:20]:
        print(f"  WRONG {mistake}")
    if mistakes:
        raise SystemExit(f"{len(mistakes)} of {len(jobs)} frames did not meet their verdict")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("action", choices=["record", "check", "flood"])
    parser.add_argument("table")
    parser.add_argument("state")
    parser.add_argument("--from", dest="sender", required=True)
    parser.add_argument("--forms", default="linear")
    parser.add_argument("--column")
    parser.add_argument("--source")
    parser.add_argument("--place", action="append", default=[])
    parser.add_argument("--marker", default="upstream")
    parser.add_argument("--pass-through", action="store_true")
    options = parser.parse_args()

    columns, frames = read_table(options.table)
    bench = Bench(options)
    jobs, what = jobs_of(frames, options, bench)
    if options.action == "flood":
        bench.flood(jobs)
    results = bench.run(jobs)
    if options.action == "record":
        with open(options.state, "w") as state:
            json.dump(results, state)
        print(f"    recorded {len(jobs)} frames without the module")
        return
    if options.column not in columns:
        raise SystemExit(f"no column {options.column}")
    with open(options.state) as state:
        before = json.load(state)
    if len(before) != len(jobs):
        raise SystemExit("recorded were other frames")
    check(jobs, what, results, before, options)


if __name__ == "__main__":
    sys.exit(main())
