"""The other side of protocol.md: a program that plays sequences on the module, one line in, one line out."""

import json
import os
import select
import subprocess
import tempfile
import time

# A sequence takes milliseconds; whoever needs this long hangs.
TIME_LIMIT = 180


class PeerDied(Exception):
    """The program ended, or had to be ended, in the middle of a sequence."""


class Peer:
    def __init__(self, command):
        self.command = command
        self.process = None

    def start(self):
        self.errors = tempfile.TemporaryFile()
        self.process = subprocess.Popen(self.command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=self.errors)
        self.unread = b""

    def stop(self):
        if self.process is not None:
            self.process.kill()
            self.process.wait()
            self.process.stdout.close()
            self.errors.close()
            try:
                self.process.stdin.close()
            except BrokenPipeError:
                pass
            self.process = None

    def send(self, steps):
        """Begins to play a sequence; the caller may do something else before it calls receive()."""
        if self.process is None:
            self.start()
        try:
            self.process.stdin.write(json.dumps(steps, separators=(",", ":")).encode() + b"\n")
            self.process.stdin.flush()
        except BrokenPipeError:
            # receive() will say why.
            pass

    def receive(self):
        return json.loads(self.read_line())

    def read_line(self):
        end = time.monotonic() + TIME_LIMIT
        output = self.process.stdout
        pieces = [self.unread]
        while b"\n" not in pieces[-1]:
            ready, _, _ = select.select([output], [], [], max(0, end - time.monotonic()))
            piece = os.read(output.fileno(), 1 << 20) if ready else b""
            if not piece:
                raise PeerDied(self.last_words("it ended" if ready else f"it was silent for {TIME_LIMIT} s"))
            pieces.append(piece)
        line, _, self.unread = b"".join(pieces).partition(b"\n")
        return line

    def last_words(self, what):
        try:
            self.process.wait(0 if what != "it ended" else 20)
        except subprocess.TimeoutExpired:
            pass
        status = self.process.poll()
        self.errors.seek(0)
        said = self.errors.read().decode("utf-8", "replace")
        self.stop()
        return f"the peer died: {what}, status {status}\n{said[-6000:]}"
