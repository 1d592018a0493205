"""Plays a sequence on the model and on a peer, and says where they part."""

import re
import struct
import traceback

from peer import PeerDied
from reference import Machine

# Machine() plays these whether or not a module is loaded.
MACHINE_STEPS = {"device", "remove_device", "clock", "ticks", "fail_allocation", "memory", "fail_registration"}


class Difference:
    """The first step whose results are not the same, and in which of their keys."""

    def __init__(self, steps, index, key, of_model, of_peer):
        self.steps = steps
        self.index = index
        self.key = key
        self.of_model = of_model
        self.of_peer = of_peer

    @property
    def kind(self):
        """Differences of one kind are told once."""
        return self.place + self.shape()

    @property
    def place(self):
        """What shrinking must not lose."""
        if self.index is None:
            return (self.key, *re.findall(r"(?:ERROR: |error: |host kernel: |model_peer: )(.{20})", self.of_peer)[:1])
        step = self.steps[self.index]
        return (step["op"], *detail(step), self.key)

    def shape(self):
        if self.key != "log" or self.index is None:
            return ()
        pairs = zip(self.of_model + [[0, ""]], self.of_peer + [[0, ""]])
        line, other = next((pair for pair in pairs if pair[0] != pair[1]), ([0, ""], [0, ""]))
        return tuple(re.sub(r"[^a-z_ ]+", "#", text[:40]) for _, text in (line, other))

    def __str__(self):
        if self.index is None:
            return f"{self.key}\n  model: {self.of_model}\n  peer:  {self.of_peer}"
        return (
            f"step {self.index + 1} of {len(self.steps)}, {short(self.steps[self.index])}: {self.key}\n"
            f"  model: {self.of_model!r}\n  peer:  {self.of_peer!r}"
        )


def detail(step):
    if step["op"] != "ioctl":
        return ()
    record = bytes.fromhex(step.get("record", "")[:8])
    return (
        step["command"],
        struct.unpack("<I", record)[0] if len(record) == 4 and step["command"] not in (6, 7) else None,
    )


def short(step):
    return ", ".join(f"{key} {str(value)[:80]}" for key, value in step.items())


def may_be_sent(steps, results):
    """Whether the protocol allows the sequence; the results tell whether the module is loaded and its device open."""
    is_loaded = is_open = False
    for step, result in zip(steps, results):
        op = step["op"]
        if op in MACHINE_STEPS:
            continue
        if op == "load":
            if is_loaded:
                return False
            is_loaded = result["result"] == 0
            continue
        if not is_loaded or (op == "release" and not is_open):
            return False
        if op == "unload" and result["result"] == 0:
            is_loaded = False
        elif op == "release":
            is_open = False
        elif op == "open" and result["result"] == 0:
            is_open = True
    return True


def play(steps):
    """The model's results, or what it died of as a text."""
    try:
        return Machine().run(steps)
    except Exception:  # pylint: disable=broad-except
        return traceback.format_exc()


def first_difference(steps, peer):
    """None where both give the same."""
    peer.send(steps)
    of_model = play(steps)
    try:
        of_peer = peer.receive()
    except PeerDied as death:
        return Difference(steps, None, "the peer died", "", str(death))
    if isinstance(of_model, str):
        return Difference(steps, None, "the model died", of_model, "")
    if of_model == of_peer:
        return None
    for index, (expected, seen) in enumerate(zip(of_model, of_peer)):
        for key in sorted(expected.keys() | seen.keys(), key=lambda key: (key == "log", key)):
            if expected.get(key) != seen.get(key):
                return Difference(steps, index, key, expected.get(key), seen.get(key))
    return Difference(steps, None, "number of results", str(len(of_model)), str(len(of_peer)))
