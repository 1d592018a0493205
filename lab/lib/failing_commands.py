"""Each request of each command, of the proc file's read and write, and of the device's open fails once.

A call that fails says so and changes nothing; one that succeeds all the same has done what the manual says for missing
memory: a client that could not be added is on no list, a rule that could not be kept ends its list.

usage: failing_commands.py
"""

import ctypes
import os
import struct

from fault_injection import FaultInjection, libc, system_call

SET_PORTAL, SET_GARDEN, GET_GARDEN, SET_GATEWAY, GET_GATEWAY = 1, 3, 4, 6, 7
SET_CLIENTS, GET_CLIENTS, CHECK_CLIENT = 8, 9, 10
# Sub-commands that add a client and take it off again, and those that read the lists.
LISTS = {0: 1, 2: 3, 4: 5, 22: 23, 24: 25, 26: 27, 31: 32}
GET_LISTS = (6, 7, 8, 20, 21, 28, 33)
FLUSH_PORTAL, SET_BEHAVIOR, GET_BEHAVIOR = 9, 10, 11
UPDATE_DEFAULT_RULE, UPDATE_RULE, GET_RULES, GET_DEFAULT_RULES = 1, 2, 4, 5
EPERM, ENOMEM = -1, -12
ROW = b"wlan-1-1"
# An address as the lab gives them to stations.
STATION = b"\2\0\0\4"
SUMMARY = "/proc/cp_dns_aRecord/summary"

faults = FaultInjection()
device = os.open("/dev/CP_dev", os.O_RDWR)
room = ctypes.create_string_buffer(65536)
for offset in range(0, 65536, 4096):  # each page is there before a call needs it
    room[offset] = b"\1"


def expect(what, wanted, got):
    if wanted != got:
        raise SystemExit(f"{what}: wanted {wanted!r:.300}, got {got!r:.300}")


def mac(number):
    return STATION + struct.pack("!H", number)


def clients_record(command, number=0, row=ROW, behavior=0, status=0):
    return struct.pack("<III16s16s6s2x", command, behavior, status, row, b"", mac(number))


def list_record(command):
    return struct.pack("<I8x16s16s", command, ROW, b"").ljust(16592, b"\0")


def check_record(number):
    return struct.pack("<I16s6s2xI", 19, ROW, mac(number), 0)


def garden_record(command, row, names=(), enable=1):
    return struct.pack("<IiIi", command, row, enable, len(names)) + b"".join(
        struct.pack("<III128s", 0, 0, 0, name) for name in names).ljust(24 * 140, b"\0")


def put(record):
    ctypes.memmove(room, record, len(record))
    return ctypes.addressof(room)


def plainly(command, record):
    """A call without a failure: the record after it."""
    expect(f"command {command}", 0, system_call(libc.ioctl, device, command, put(record)))
    return room.raw[:len(record)]


def state():
    return {
        "lists": [plainly(GET_CLIENTS, list_record(sub)) for sub in (*GET_LISTS, GET_BEHAVIOR)],
        "rules": plainly(GET_GARDEN, garden_record(GET_RULES, 3)),
        "defaults": plainly(GET_GARDEN, garden_record(GET_DEFAULT_RULES, 0)),
        "gateway": plainly(GET_GATEWAY, bytes(4)),
    }


def fail_each(name, command, record, undo=(), also=(), refusals=(EPERM, ENOMEM)):
    """`undo` are the calls that bring the state back; `also` are states that a failure may leave besides those before
    and after, each given by the calls that bring it about."""

    def bring_back():
        for step in undo:
            plainly(*step)

    before = state()
    whole = plainly(command, record)
    done = state()
    bring_back()
    expect(f"{name}: undone", before, state())
    halves = []
    for steps in also:
        for step in steps:
            plainly(*step)
        halves.append(state())
        bring_back()
    count = 0
    address = put(record)
    for number, result, failed in faults.each(libc.ioctl, device, command, address):
        reply = room.raw[:len(record)]
        after = state()
        where = f"{name}, request {number}"
        if not failed:
            expect(where, (0, whole, done), (result, reply, after))
        elif result in refusals:
            expect(where, (record, before), (reply, after))
        elif result > 0:
            # A reply that could not be written.
            expect(where, (len(record), record, before), (result, reply, after))
        elif result != 0 or after not in (before, done, *halves):
            raise SystemExit(f"{where}: gave {result} and left something half done")
        bring_back()
        put(record)
        count += failed
    if not count:
        raise SystemExit(f"{name}: no request failed")
    print(f"    {name}: {count} requests failed", flush=True)
    return count


def commands():
    fail_each("portal mode", SET_PORTAL, struct.pack("<IiI16s", 1, 3, 1, b""))
    fail_each("gateway's address", GET_GATEWAY, bytes(4)) if "fail_usercopy" in faults.points else None
    fail_each("garden switch", SET_GARDEN, garden_record(0, 3), [(SET_GARDEN, garden_record(0, 3, enable=0))])
    old, names = [b"old.example"], [b"a.example", b"b.example", b"*.c.example"]
    plainly(SET_GARDEN, garden_record(UPDATE_RULE, 3, old))
    plainly(SET_GARDEN, garden_record(UPDATE_DEFAULT_RULE, 0, old))
    fail_each("rules", SET_GARDEN, garden_record(UPDATE_RULE, 3, names),
              undo=[(SET_GARDEN, garden_record(UPDATE_RULE, 3, old))],
              also=[[(SET_GARDEN, garden_record(UPDATE_RULE, 3, names[:kept]))] for kept in range(len(names))])
    fail_each("default rules", SET_GARDEN, garden_record(UPDATE_DEFAULT_RULE, 0, names),
              undo=[(SET_GARDEN, garden_record(UPDATE_DEFAULT_RULE, 0, old))])
    fail_each("rules read", GET_GARDEN, garden_record(GET_RULES, 3))
    for add, remove in LISTS.items():
        count = fail_each(f"client, sub-command {add}", SET_CLIENTS, clients_record(add, 1),
                  [(SET_CLIENTS, clients_record(remove, 1))])
    fail_each("clients read", GET_CLIENTS, list_record(8)) if "fail_page_alloc" in faults.points else None
    fail_each("client looked for", CHECK_CLIENT, check_record(1))
    fail_each("flush", SET_CLIENTS, clients_record(FLUSH_PORTAL))
    fail_each("behaviour", SET_CLIENTS, clients_record(SET_BEHAVIOR, behavior=2, status=2),
              [(SET_CLIENTS, clients_record(SET_BEHAVIOR))])
    # With 50 addresses the index of clients is full.
    # Emptied first, it is as small as ever.
    full = [(SET_CLIENTS, clients_record(FLUSH_PORTAL)),
            *((SET_CLIENTS, clients_record(4, number)) for number in range(100, 150))]
    for step in full:
        plainly(*step)
    if fail_each("client that needs a larger index", SET_CLIENTS, clients_record(4, 200), full) <= count:
        raise SystemExit("the index did not grow")
    plainly(SET_CLIENTS, clients_record(FLUSH_PORTAL))


def proc_file():
    reader = os.open(SUMMARY, os.O_RDWR)
    address = ctypes.addressof(room)
    libc.pread.argtypes = [ctypes.c_int, ctypes.c_ulong, ctypes.c_size_t, ctypes.c_long]
    libc.pwrite.argtypes = libc.pread.argtypes
    os.pwrite(reader, b"all", 0)
    wanted = os.pread(reader, 65536, 0)
    count = 0
    for number, result, failed in faults.each(libc.pread, reader, address, 65536, 0):
        if result not in ((ENOMEM, len(wanted)) if failed else (len(wanted),)):
            raise SystemExit(f"read, request {number}: gave {result}")
        count += failed
    print(f"    read of the proc file: {count} requests failed", flush=True)
    if not count:
        raise SystemExit("read of the proc file: no request failed")
    count = 0
    put(b"all")
    for number, result, failed in faults.each(libc.pwrite, reader, address, 3, 0):
        if result not in ((-22, 3) if failed else (3,)):
            raise SystemExit(f"write, request {number}: gave {result}")
        count += failed
    print(f"    write of the proc file: {count} requests failed", flush=True)
    os.close(reader)


def open_device():
    os.close(device)
    path = ctypes.create_string_buffer(b"/dev/CP_dev")
    count = 0
    for number, result, failed in faults.each(libc.open, path, os.O_RDWR):
        if result >= 0:
            os.close(result)
        elif not failed:
            raise SystemExit(f"open, request {number}: gave {result}")
        # Whatever it gave, nobody holds the device now.
        os.close(os.open("/dev/CP_dev", os.O_RDWR))
        count += failed
    print(f"    open of the device: {count} requests failed", flush=True)
    if not count:
        raise SystemExit("open of the device: no request failed")


print(f"    what fails: {', '.join(faults.points)}")
commands()
proc_file()
open_device()
