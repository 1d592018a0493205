"""Sends frames, as lab/lib/frame_bytes.py has the words, in one of the forms of lab/lib/frame_wire.py.

usage: send_frames.py NAMESPACE/DEVICE FORM SOURCE_MAC FRAME CHANGE...

A number in a change may be a range: that many frames.
"""

import itertools
import sys

from frame_bytes import change_frame, good_frame
from frame_table import expand
from frame_wire import Sender


def main(place, form, source, *words):
    namespace, _, device = place.rpartition("/")
    sender = Sender(namespace, device)
    if not sender.gives(form):
        raise SystemExit(f"this kernel gives no {form}")
    for kind, *changes in itertools.product(*(expand(word) for word in words)):
        frame = good_frame(kind)
        for change in changes:
            frame = change_frame(frame, change)
        sender.send(form, frame[:6] + bytes.fromhex(source.replace(":", "")) + frame[12:])


main(*sys.argv[1:])
