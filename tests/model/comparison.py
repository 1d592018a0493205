"""Plays random sequences on the model and on a peer, in several processes, and compares all that can be seen."""

import argparse
import collections
import concurrent.futures
import json
import multiprocessing
import os
import pathlib
import shlex
import time

import planted
import worker
from difference import first_difference, may_be_sent, play, short
from peer import Peer
from shrink import Shrinker

HERE = pathlib.Path(__file__).resolve().parent
# Sequences in a piece of work.
BATCH = 10
# Beyond so many kinds of differences nobody reads on.
KINDS = 20
# Runs from this length on have to reach every branch of the model; and looking for them, which is slow, ends here.
STEPS_FOR_ALL_BRANCHES = 200_000
SAY_EVERY = 60


def say(text):
    print(text, flush=True)


def differs_like(difference, peer):
    def fails(steps):
        if not steps:
            return False
        of_model = play(steps)
        if isinstance(of_model, str) != (difference.key == "the model died"):
            return False
        if not isinstance(of_model, str) and not may_be_sent(steps, of_model):
            return False
        other = first_difference(steps, peer)
        return other is not None and other.place == difference.place

    return fails


def shrunk(difference, peer):
    """The same difference in the shortest sequence that could be found."""
    steps = Shrinker(differs_like(difference, peer)).shrink(difference.steps)
    return first_difference(steps, peer) or difference


def write_sequence(path, about, steps):
    path.parent.mkdir(parents=True, exist_ok=True)
    lines = ",\n".join("\t\t" + json.dumps(step) for step in steps)
    path.write_text(f'{{\n\t"about": {json.dumps(about)},\n\t"steps": [\n{lines}\n\t]\n}}\n', encoding="utf-8")


def tell(difference, path, peer):
    """Shrinks a difference and prints it as a test."""
    small = shrunk(difference, peer)
    write_sequence(path, " ".join(map(str, small.place)), small.steps)
    say(f"difference: {' '.join(map(str, difference.place))}")
    say(f"{len(small.steps)} of {len(difference.steps)} steps show it: ./run model --replay {path}")
    say(path.read_text(encoding="utf-8") + str(small))


def replay(files, peer):
    """Whether every file's sequence gives the same on both sides."""
    is_same = True
    for file in files:
        steps = json.loads(pathlib.Path(file).read_text(encoding="utf-8"))["steps"]
        difference = first_difference(steps, peer)
        if difference:
            is_same = False
            say(f"{file}: {difference}")
    say(f"{len(files)} kept sequences played")
    return is_same and len(files) > 0


def self_test(peer):
    """Whether wrong models are noticed, and shown in a few steps."""
    unseen = 0
    for name, make_wrong in planted.PLANTED:
        undo = make_wrong()
        try:
            verdict = look_for_planted(peer)
        finally:
            undo()
        unseen += verdict is None
        say(f"{'seen' if verdict else 'NOT SEEN'}: {name}: {verdict}")
    say(f"{len(planted.PLANTED) - unseen} of {len(planted.PLANTED)} wrong models seen")
    return unseen == 0


def look_for_planted(peer):
    for number in range(planted.SEQUENCES):
        difference = first_difference(worker.generate.sequence("planted", number), peer)
        if difference:
            steps = Shrinker(differs_like(difference, peer)).without_steps(difference.steps)
            if difference.index is None or len(steps) > planted.LONGEST:
                return None
            return f"sequence {number}, {len(steps)} of {len(difference.steps)} steps, last: {short(steps[-1])}"
    return None


class Comparison:
    def __init__(self, arguments):
        self.arguments = arguments
        self.steps = self.sequences = self.failing = 0
        # The steps on which somebody looked at the branches.
        self.watched = 0
        # Kind -> (number of the sequence, its Difference)
        self.kinds = {}
        self.looks = arguments.branches
        if self.looks:
            import branches

            self.reached = branches.Reached()

    def run(self):
        arguments = self.arguments
        started = said = time.monotonic()
        pool = concurrent.futures.ProcessPoolExecutor(
            arguments.jobs,
            multiprocessing.get_context("spawn"),
            worker.begin,
            (arguments.peer, self.looks),
        )
        with pool:
            pending = collections.deque()
            first = 0
            # Taken in the order of their numbers, so that what is run does not depend on who is fast.
            while self.steps < arguments.steps:
                while len(pending) < 2 * arguments.jobs:
                    pending.append(
                        (first, self.looks, pool.submit(worker.run, arguments.seed, first, BATCH, self.looks))
                    )
                    first += BATCH
                number, looked, future = pending.popleft()
                self.take(number, looked, future.result())
                if time.monotonic() - said > SAY_EVERY:
                    said = time.monotonic()
                    say(f"... {self.steps} steps, {self.failing} failing sequences, {said - started:.0f} s")
            for _, _, future in pending:
                future.cancel()
        self.seconds = time.monotonic() - started

    def take(self, first, looked, batch):
        self.sequences += len(batch.steps)
        self.steps += sum(batch.steps)
        self.failing += len(batch.differences)
        for number, difference in batch.differences:
            if len(self.kinds) < KINDS:
                self.kinds.setdefault(difference.kind, (number, difference))
        if looked:
            self.watched += sum(batch.steps)
            is_new = self.reached.add(batch.ways)
            if is_new and first % (10 * BATCH) == 0:
                self.reached.count()
            self.looks = self.looks and not self.reached.is_complete and self.watched < STEPS_FOR_ALL_BRANCHES

    def tell(self):
        """The verdict."""
        arguments = self.arguments
        peer = Peer(arguments.peer)
        for number, difference in self.kinds.values():
            tell(difference, arguments.keep / f"{arguments.seed}-{number}.json", peer)
        peer.stop()
        is_good = self.failing == 0
        say(
            f"{self.steps} steps in {self.sequences} sequences of seed {arguments.seed}, {self.seconds:.0f} s, "
            f"{self.steps / self.seconds:.0f} steps/s"
        )
        if arguments.branches:
            self.reached.count()
            for branch in self.reached.missing:
                say(f"not reached: {branch}")
            reached = self.reached
            figures = f"{reached.reached} of {reached.total} branches"
            say(f"{figures} of the model reached (in the first {self.watched} steps)")
            is_good = is_good and (self.reached.is_complete or arguments.steps < STEPS_FOR_ALL_BRANCHES)
        say(f"{self.failing} sequences with differences, of {len(self.kinds)} kinds")
        return is_good


def main():
    parser = argparse.ArgumentParser(prog="./run model")
    parser.add_argument("steps", type=int, nargs="?")
    parser.add_argument("seed", nargs="?", default="1")
    parser.add_argument(
        "--peer", type=shlex.split, required=True, help="command of the program that plays the sequences"
    )
    parser.add_argument("--jobs", type=int, default=len(os.sched_getaffinity(0)))
    parser.add_argument("--replay", nargs="*", metavar="FILE", help="plays these sequences, or all that are kept")
    parser.add_argument("--self-test", action="store_true", help="looks whether wrong models are noticed")
    parser.add_argument(
        "--no-branches", dest="branches", action="store_false", help="does not count the model's branches"
    )
    parser.add_argument(
        "--keep", type=pathlib.Path, default=pathlib.Path.cwd(), help="where failing sequences are written"
    )
    arguments = parser.parse_args()

    kept = sorted(HERE.glob("sequences/*.json"))
    peer = Peer(arguments.peer)
    try:
        if arguments.self_test:
            return 0 if self_test(peer) else 1
        if arguments.replay is not None:
            return 0 if replay(arguments.replay or kept, peer) else 1
        if not arguments.steps:
            parser.error("how many STEPS?")
        is_good = replay(kept, peer)
    finally:
        peer.stop()
    comparison = Comparison(arguments)
    comparison.run()
    return 0 if comparison.tell() and is_good else 1
