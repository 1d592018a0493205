"""Makes a failing sequence short: takes steps away, then parts of steps, as long as it fails in the same place."""

import time

HEX_KEYS = ("frame", "record", "text")
# Not worth more than this, in seconds.
TIME_LIMIT = 120


class Shrinker:
    def __init__(self, fails):
        """`fails(steps)` says whether a sequence may be sent and still fails in the same place."""
        self.fails = fails
        self.end = time.monotonic() + TIME_LIMIT

    def is_better(self, steps):
        return time.monotonic() < self.end and self.fails(steps)

    def shrink(self, steps):
        before = None
        while before != steps and time.monotonic() < self.end:
            before = steps
            steps = self.without_steps(steps)
            for index in range(len(steps) - 1, -1, -1):
                steps = self.simplify_step(steps, index)
        return steps

    def without_steps(self, steps):
        """Delta debugging: pieces of half the sequence, then of a quarter, and so on."""
        size = len(steps) // 2
        while size >= 1:
            start = 0
            while start < len(steps):
                candidate = steps[:start] + steps[start + size :]
                if self.is_better(candidate):
                    steps = candidate
                else:
                    start += size
            size //= 2
        return steps

    def simplify_step(self, steps, index):
        def attempt(step):
            nonlocal steps
            candidate = steps[:index] + [step] + steps[index + 1 :]
            if step != steps[index] and self.is_better(candidate):
                steps = candidate
                return True
            return False

        for key in (
            "border",
            "behind",
            "compat",
            "layout",
            "writable",
            "checksum",
            "mark",
            "firewall_mark",
            "position",
        ):
            if key in steps[index]:
                # A border without what lies behind it says nothing.
                dropped = ("border", "behind") if key in ("border", "behind") else (key,)
                attempt({name: value for name, value in steps[index].items() if name not in dropped})
        for key, value in list(steps[index].items()):
            if key in HEX_KEYS:
                self.simplify_bytes(lambda text, key=key: attempt({**steps[index], key: text}), bytes.fromhex(value))
            elif isinstance(value, int) and not isinstance(value, bool) and key != "command":
                for smaller in (0, 1, value // 2, value - 1):
                    if 0 <= smaller < value:
                        attempt({**steps[index], key: smaller})
            elif isinstance(value, list):
                for shorter in ([], value[:1]):
                    attempt({**steps[index], key: shorter})
        return steps

    def simplify_bytes(self, attempt, data):
        """Shorter, then with as many zeroes as can be."""
        cut = len(data) // 2
        while cut >= 1:
            if len(data) >= cut and attempt(data[:-cut].hex()):
                data = data[:-cut]
            else:
                cut //= 2
        ranges = [(0, len(data))]
        while ranges:
            start, end = ranges.pop()
            if not any(data[start:end]):
                continue
            candidate = data[:start] + bytes(end - start) + data[end:]
            if attempt(candidate.hex()):
                data = candidate
            elif end - start > 1:
                middle = (start + end) // 2
                ranges += [(start, middle), (middle, end)]
