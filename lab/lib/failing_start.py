"""The module is loaded with the first request of the load failing, then the second, until none is left to fail. A load
that fails leaves no module; one that succeeds all the same unloads like any other.

usage: failing_start.py MODULE.ko
"""

import collections
import ctypes
import errno
import itertools
import os
import sys

from fault_injection import POINTS, FaultInjection, libc, system_call, told
from system_calls import DELETE_MODULE, FINIT_MODULE


def is_loaded():
    return os.path.isdir("/sys/module/captive_portal")


def unload(where):
    result = system_call(libc.syscall, DELETE_MODULE, b"captive_portal", os.O_NONBLOCK)
    if result or is_loaded():
        raise SystemExit(f"{where}: the module does not unload: {result}")


def main(path):
    faults = FaultInjection()
    file = os.open(path, os.O_RDONLY)
    empty = ctypes.create_string_buffer(b"")
    load = (libc.syscall, FINIT_MODULE, file, empty, 0)
    # What a first load alone asks for is not the module's.
    if result := system_call(*load):
        raise SystemExit(f"the module does not load: {result}")
    unload("a load without a failure")
    results = collections.Counter()
    failures = collections.Counter()
    # What else a load asks for depends on what the slab has left, so a copy may be passed over by the first sweep.
    for number, result, failed in itertools.chain(faults.each(*load), faults.each_copy(*load)):
        where = f"request {number} ({failed})"
        if result == 0:
            if not os.path.exists("/proc/misc") or "CP_dev" not in open("/proc/misc", encoding="ascii").read():
                raise SystemExit(f"{where}: loaded without its device")
            unload(where)
        elif not failed:
            raise SystemExit(f"{where}: not loaded, with nothing that failed: {result}")
        elif is_loaded():
            raise SystemExit(f"{where}: {result}, but the module is there")
        if not failed:
            continue
        results[errno.errorcode[-result] if result else "loaded all the same"] += 1
        failures[failed] += 1
    print(f"    what failed: {told(failures)}")
    if missing := [what for what in POINTS.values() if not failures[what]]:
        raise SystemExit(f"none of these failed: {missing}")
    for name, count in results.most_common():
        print(f"    {count} loads: {name}")


main(*sys.argv[1:])
