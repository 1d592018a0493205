"""Has cpctl explain frames, then sends them, and holds what comes out, and what is counted, against what it has said.

    explained_frames.py FILE        each line describes frames of client-1-1, as cpctl explain takes them behind
                                    "dev wlan-1-1 from MAC"; blank lines and comments are left out
    explained_frames.py answer NAME ADDRESS   a DNS answer from upstream on its way to the client

Requests go out of the client's device; replies, out of br0. A frame that everybody lets pass follows each one: what has
not come out before it never will.
"""

import collections
import json
import subprocess
import sys
import time

from frame_bytes import GATEWAY_MAC, good_frame
from frame_wire import Listener, Sender, stay_on_one_processor, wait_readable

COUNTERS = "/proc/captive_portal/counters"
STATUS = "/proc/captive_portal/status"
# Passes the gatekeeper whoever sends it, and is counted nowhere.
PASSING_TYPE = bytes.fromhex("886b")
MARKER_SOURCE = bytes.fromhex("02000000fffe")
EVERYBODY = b"\xff" * 6
SECONDS = 20


def counted():
    counts = collections.Counter()
    with open(COUNTERS) as lines:
        for line in lines:
            words = dict(word.split("=") for word in line.split()[1:])
            counts[words["interface"], words["reason"]] = int(words["value"])
    return counts


def client_mac():
    shown = subprocess.run(["ip", "netns", "exec", "client-1-1", "cat", "/sys/class/net/eth0/address"], check=True,
                           capture_output=True, text=True)
    return shown.stdout.strip()


class Bench:
    def __init__(self):
        self.mac = client_mac()
        self.client, self.bridge = Sender("client-1-1", "eth0"), Sender("", "br0")
        self.at_client = Listener("client-1-1", "eth0")
        self.at_bridge = Listener("", "br0")
        self.at_upstream = Listener("upstream", "eth0")
        self.markers = 0

    def arrivals(self, sender, frame, listeners):
        """What comes out of each listener of a frame that is sent: only frames from its sender, or to the client."""
        self.markers += 1
        marker = EVERYBODY + MARKER_SOURCE + PASSING_TYPE + self.markers.to_bytes(8, "big") * 6
        sender.send("linear", frame)
        sender.send("linear", marker)
        seen, waiting = [[] for _ in listeners], set(range(len(listeners)))
        deadline = time.monotonic() + SECONDS
        while waiting:
            if time.monotonic() > deadline:
                sys.exit("a frame that passes everywhere does not come out")
            for at in list(waiting):
                wait_readable(listeners[at], 1)
                for data, _, _ in listeners[at].arrivals():
                    if data == marker:
                        waiting.discard(at)
                    elif data[6:12] == frame[6:12] or data[:6] == bytes.fromhex(self.mac.replace(":", "")):
                        seen[at].append(data)
        return seen

    def check_request(self, said, frame, frame_after):
        at_bridge, at_upstream = self.arrivals(self.client, frame, [self.at_bridge, self.at_upstream])
        came = at_bridge + at_upstream
        if said["verdict"] == "dropped":
            return not came
        if said["verdict"] == "redirected":
            return at_bridge == [frame_after] and not at_upstream
        return said["verdict"] == "passed" and bool(came) and all(one == frame for one in came)

    def check_reply(self, said, frame, frame_after):
        at_client, = self.arrivals(self.bridge, frame, [self.at_client])
        return said["verdict"] in ("passed", "rewritten") and at_client == [frame_after]

    def check(self, words):
        command = ["/payload/bin/cpctl", "-j", "explain", "dev", "wlan-1-1", "from", self.mac, *words]
        before = counted()
        run = subprocess.run(command, check=False, capture_output=True, text=True)
        if run.returncode:
            return f"status {run.returncode}: {run.stderr.strip()}"
        said = json.loads(run.stdout)
        if counted() != before:
            return f"explaining it has counted {dict(counted() - before)}"
        if said["assumed"]:
            return f"explaining it took something for given: {said['assumed']}"
        expected = collections.Counter()
        for frame in said["frames"]:
            data, after = bytes.fromhex(frame["bytes"]), bytes.fromhex(frame["bytes_after"])
            check = self.check_request if frame["in"] else self.check_reply
            if not check(frame, data, after):
                return f"{frame['frame']} did not come out as was said: {frame['verdict']}, {frame['outcome']}"
            for hook in frame["hooks"]:
                expected.update((count["interface"], count["reason"]) for count in hook["counted"])
        if counted() - before != expected:
            return f"counted {dict(counted() - before)} instead of {dict(expected)}"
        print(f"    {' '.join(words)}: {', '.join(frame['verdict'] for frame in said['frames'])}")
        return ""


def answer(name, address):
    frame = good_frame(f"answer/{name}/{address}")
    mac = bytes.fromhex(client_mac().replace(":", ""))
    Sender("upstream", "eth0").send("linear", mac + GATEWAY_MAC + frame[12:])
    deadline = time.monotonic() + SECONDS
    while time.monotonic() < deadline:
        with open(STATUS) as lines:
            if " cached_addresses=0 " not in lines.readline():
                return
        time.sleep(0.01)
    sys.exit("the answer's address is not cached")


def main():
    if sys.argv[1] == "answer":
        answer(*sys.argv[2:])
        return
    stay_on_one_processor()
    bench = Bench()
    with open(sys.argv[1]) as lines:
        descriptions = [line.split() for line in lines if line.strip() and not line.startswith("#")]
    wrong = [(words, mistake) for words in descriptions if (mistake := bench.check(words))]
    for words, mistake in wrong:
        print(f"{' '.join(words)}: {mistake}", file=sys.stderr)
    sys.exit(bool(wrong) or not descriptions)


main()
