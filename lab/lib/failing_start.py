"""The module is loaded with the first request of the load failing, then the second, until none is left to fail. A load
that fails leaves no module; one that succeeds all the same unloads like any other.

usage: failing_start.py MODULE.ko [FIRST [LAST]]
"""

import collections
import ctypes
import errno
import os
import sys

from fault_injection import POINTS, FaultInjection, libc, system_call, told

INIT_FROM_FILE, DELETE_MODULE = 313, 176  # numbers of the calls


def is_loaded():
    return os.path.isdir("/sys/module/captive_portal")


def unload(where):
    result = system_call(libc.syscall, DELETE_MODULE, b"captive_portal", os.O_NONBLOCK)
    if result or is_loaded():
        raise SystemExit(f"{where}: the module does not unload: {result}")


def main(path, first="1", last="100000"):
    faults = FaultInjection()
    file = os.open(path, os.O_RDONLY)
    empty = ctypes.create_string_buffer(b"")
    load = (libc.syscall, INIT_FROM_FILE, file, empty, 0)
    # What a first load alone asks for is not the module's.
    if result := system_call(*load):
        raise SystemExit(f"the module does not load: {result}")
    unload("a load without a failure")
    results = collections.Counter()
    failures = collections.Counter()
    for number in range(int(first), int(last) + 1):
        result, failed = faults.call(number, *load)
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
            break
        results[errno.errorcode[-result] if result else "loaded all the same"] += 1
        failures[failed] += 1
    print(f"    what failed: {told(failures)}")
    if missing := [what for what in POINTS.values() if not failures[what]]:
        raise SystemExit(f"none of these failed: {missing}")
    for name, count in results.most_common():
        print(f"    {count} loads: {name}")


main(*sys.argv[1:])
