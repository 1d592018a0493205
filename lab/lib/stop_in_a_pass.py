"""Unloads the module at a chosen moment of the expiry thread's pass, and says where the pass was.

usage: stop_in_a_pass.py MILLISECONDS   after the line that begins the next pass
       stop_in_a_pass.py asleep         at once: the thread sleeps, and no other pass begins

Prints: the milliseconds that the unload took, the bucket that the pass had reached when it was asked to stop (-1 before
the first entry, 1024 when it was over), how many entries the pass looked at, and how long it took.
"""

import os
import re
import select
import sys
import time

from system_calls import unload_module

BEGIN = "[schedule_check]in while loop"
STOP = "kthread_stop schedule_check_thread"
END = "[schedule_check]out of loop"


def lines(log, seconds):
    """Each new line of the kernel's log and its time in microseconds, until none comes for so long."""
    while select.select([log], [], [], seconds)[0]:
        record = os.read(log, 8192).decode(errors="replace")
        head, _, text = record.partition(";")
        yield int(head.split(",")[2]), text.split("\n")[0]


def main(after):
    log = os.open("/dev/kmsg", os.O_RDONLY)
    os.lseek(log, 0, os.SEEK_END)
    began = 0
    if after != "asleep":
        began = next((when for when, text in lines(log, 100) if text.startswith(BEGIN)), None)
        if began is None:
            raise SystemExit("no pass began")
        time.sleep(float(after) / 1000)
    start = time.monotonic()
    unload_module()
    took = time.monotonic() - start

    reached, stop_at, looked_at, last = -1, None, 0, began
    for when, text in lines(log, 1):
        if text.startswith(STOP):
            stop_at = reached
        if text.startswith(END):
            break
        if after == "asleep" and text.startswith(BEGIN):
            raise SystemExit("a pass began, where the thread was to be asleep")
        found = re.match(r"\[(\d+)\]IP=", text)
        if found:
            reached, last = int(found[1]), when
            looked_at += 1
            after_stop = stop_at is not None
    if stop_at is None:
        raise SystemExit("the log does not say that the thread was stopped")
    if looked_at and not after_stop:
        stop_at = 1024
    print(f"{took * 1000:.0f} {stop_at} {looked_at} {(last - began) / 1000:.0f}")


main(*sys.argv[1:])
