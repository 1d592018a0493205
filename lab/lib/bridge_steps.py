"""Bridges and ports that come, go and change, and what becomes of a client's first request after each change.

usage: bridge_steps.py FILE

A line of FILE is one of
    = TEXT                     what happens next
    ip WORDS / cpctl WORDS     a change
    CABLE: WANTED              a SYN to 203.0.113.10 port 80 goes into a cable (NAMESPACE/DEVICE), and comes out so

WANTED is "nothing", "PLACE same" or "PLACE MAC ADDRESS:PORT", where PLACE is a bridge itself or what is behind its uplink:
br0, br1, elsewhere/br0, upstream, upstream1, elsewhere-upstream.
A frame that every bridge floods follows the SYN, so that what has not come out when it does, does not come.
"""

import contextlib
import socket
import struct
import subprocess
import sys
import time

from frame_bytes import good_frame
from frame_wire import Listener, Sender, stay_on_one_processor

PLACES = {"br0": ("", "br0"), "br1": ("", "br1"), "brx": ("", "brx"), "elsewhere/br0": ("elsewhere", "br0"),
          "upstream": ("upstream", "eth0"), "upstream1": ("upstream1", "eth0"),
          "elsewhere-upstream": ("elsewhere-upstream", "eth0")}
OURS = b"\x02\0\x09"
EVERYBODY = b"\xff" * 6
SECONDS = 20


class Steps:
    def __init__(self):
        stay_on_one_processor()
        self.changes = []
        self.number = 0
        self.tried = 0

    def line(self, text):
        word, _, rest = text.partition(" ")
        if word == "=":
            print(f"    {rest}", flush=True)
        elif word == "ip":
            self.changes.append(rest)
        elif word == "cpctl":
            self.change()
            subprocess.run(["/payload/bin/cpctl", "--wait", "20", *rest.split()], check=True)
        else:
            self.change()
            self.probe(word.rstrip(":"), rest)

    def change(self):
        if self.changes:
            subprocess.run(["ip", "-batch", "-"], input="\n".join(self.changes), text=True, check=True)
            self.changes = []

    def probe(self, cable, wanted):
        """A port that was just made or moved forwards a moment later; until then the flooded frame does not come out."""
        place = wanted.split()[0]
        deadline = time.monotonic() + SECONDS
        while True:
            came, through = self.send_through(cable)
            # Where nothing is wanted to come out, the flooded frame is not to come out either: it would be the module
            # that kept the SYN.
            if place == "nothing" and through:
                raise SystemExit(f"{cable}: wanted nothing, but the flooded frame came out at {sorted(through)}")
            if through or (place == "nothing" and not came):
                break
            if time.monotonic() > deadline:
                raise SystemExit(f"{cable}: nothing comes through at all, wanted {wanted}")
        if came != ([] if wanted == "nothing" else [wanted]):
            raise SystemExit(f"{cable}: wanted {wanted}, got {came}")
        self.tried += 1

    def send_through(self, cable):
        self.number += 1
        ours = OURS + self.number.to_bytes(3, "big")
        request = good_frame("tcp/203.0.113.10/80")
        request = request[:6] + ours + request[12:]
        flooded = EVERYBODY + ours + struct.pack("!H", 0x88B5) + bytes(46)
        listeners = {}
        for name, place in PLACES.items():
            with contextlib.suppress(OSError):
                listeners[name] = Listener(*place)
                # That its device is down is said once, in place of the first frame.
                list(listeners[name].arrivals())
        sender = Sender(*cable.rpartition("/")[::2])
        sender.send("linear", request)
        sender.send("linear", flooded)
        came, through = [], set()
        deadline = time.monotonic() + 0.5
        # Behind the flooded frame's first arrival others may still be on their way to their listeners.
        while time.monotonic() < deadline:
            for name, listener in listeners.items():
                for frame, _, _ in listener.arrivals():
                    if frame[6:12] != ours:
                        continue
                    if frame == flooded:
                        deadline = min(deadline, time.monotonic() + 0.02) if not through else deadline
                        through.add(name)
                    else:
                        came.append(f"{name} {self.said(request, frame)}")
            time.sleep(0.005)
        for wire in [sender.plain, *(listener.wire for listener in listeners.values())]:
            wire.close()
        return came, through

    @staticmethod
    def said(request, frame):
        if frame == request:
            return "same"
        port, = struct.unpack_from("!H", frame, 36)
        return f"{frame[:6].hex(':')} {socket.inet_ntoa(frame[30:34])}:{port}"


def main(name):
    steps = Steps()
    with open(name) as file:
        for line in (line.split("#")[0].strip() for line in file):
            if line:
                steps.line(line)
    steps.change()
    print(f"{steps.tried} requests, with {2 * steps.number} frames", file=sys.stderr)


main(*sys.argv[1:])
