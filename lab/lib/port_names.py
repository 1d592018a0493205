"""Ports with odd names: what each is taken for shows in where its client's request is redirected.

usage: port_names.py NAME=VERDICT...   through the cable whose other end is client-1-1/e0, e1, ... in this order;
VERDICT is drop, same (it reaches upstream), or BRIDGE:PORT, a redirect to that bridge
"""

import sys

from frame_bytes import ACCESS_POINT_MAC, good_frame, redirected
from frame_table import number_of, with_number
from frame_wire import Listener, Sender, stay_on_one_processor, wait_readable

BRIDGES = {"br0": ACCESS_POINT_MAC, "br1": bytes.fromhex("020000000002")}


def main(cases):
    stay_on_one_processor()
    names = [case.rpartition("=")[0] for case in cases]
    verdicts = [case.rpartition("=")[2] for case in cases]
    places = {bridge: Listener("", bridge) for bridge in BRIDGES}
    places["upstream"] = Listener("upstream", "eth0")
    senders = [Sender("client-1-1", f"e{i}") for i in range(len(cases))]
    last = Sender("client-1-1", "eth0")
    sent = [with_number(good_frame("tcp/203.0.113.10/80"), i, None) for i in range(len(cases))]
    # The one frame whose way out is known goes last.
    for sender, frame in [*zip(senders, sent), (last, with_number(good_frame("arp"), len(cases), None))]:
        sender.send("linear", frame)

    came = {i: [] for i in range(len(cases) + 1)}
    while not came[len(cases)]:
        if not wait_readable(places["upstream"], 30):
            raise SystemExit("the last frame did not come through")
        take(places, came)
    take(places, came)
    wrong = 0
    for i, (name, verdict) in enumerate(zip(names, verdicts)):
        bridge, _, port = verdict.partition(":")
        if port:
            frame = BRIDGES[bridge] + redirected(sent[i], int(port))[6:]
            wanted = [(bridge, frame.hex())]
        else:
            wanted = [("upstream", sent[i].hex())] if verdict == "same" else []
        print(f"    {name}: {verdict}")
        if came[i] != wanted:
            wrong += 1
            print(f"  WRONG: wanted {wanted}\n         got {came[i]}")
    return f"{wrong} names were taken for another" if wrong else 0


def take(places, came):
    for place, listener in places.items():
        for frame, _, _ in listener.arrivals():
            number = number_of(frame)
            if number is not None:
                came[number].append((place, frame.hex()))


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
