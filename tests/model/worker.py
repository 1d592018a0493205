"""One of the processes that play sequences."""

import dataclasses

import generate
from peer import Peer

peer = None
recorder = None
first_difference = None


@dataclasses.dataclass
class Batch:
    # Number of steps of each sequence.
    steps: list
    # (number of the sequence, its Difference)
    differences: list
    # Ways through the model, by file; None when nobody looked.
    ways: dict | None


def begin(command, looks_at_branches):
    """Once in each process."""
    global peer, recorder, first_difference
    peer = Peer(command)
    if looks_at_branches:
        import branches

        recorder = branches.Recorder()
    # The model comes with it, and has to come after the recorder.
    import difference

    first_difference = difference.first_difference
    if recorder:
        recorder.pause()


def run(seed, first, count, looks_at_branches):
    """Plays the sequences from `first` on."""
    sequences = [generate.sequence(seed, number) for number in range(first, first + count)]

    def play():
        return [first_difference(steps, peer) for steps in sequences]

    found, ways = recorder.watch(play) if looks_at_branches else (play(), None)
    differences = [(first + place, one) for place, one in enumerate(found) if one is not None]
    return Batch([len(steps) for steps in sequences], differences, ways)
