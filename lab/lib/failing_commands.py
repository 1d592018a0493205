"""Each request of each command, of the proc file's read and write, of the status files, and of the device's open fails
once; then each does without any pages.

A call that fails says so and changes nothing; one that succeeds all the same has done what the manual says for missing
memory: a client that could not be added is on no list, a rule that could not be kept ends its list. A gateway that
could not be read is none, and what of a listing could not be written counts as listed.

usage: failing_commands.py
"""

import collections
import ctypes
import os
import struct

from fault_injection import FaultInjection, libc, system_call, told

SET_PORTAL, GET_PORTAL, SET_GARDEN, GET_GARDEN, UNKNOWN, SET_GATEWAY, GET_GATEWAY = 1, 2, 3, 4, 5, 6, 7
SET_CLIENTS, GET_CLIENTS, CHECK_CLIENT, SET_DEBUG_LEVEL = 8, 9, 10, 11
# Sub-commands that add a client and take it off again, and those that read the lists.
LISTS = {0: 1, 2: 3, 4: 5, 22: 23, 24: 25, 26: 27, 31: 32}
GET_LISTS = (6, 7, 8, 20, 21, 28, 33)
FLUSH_PORTAL, SET_BEHAVIOR, GET_BEHAVIOR = 9, 10, 11
UPDATE_DEFAULT_RULE, UPDATE_RULE, GET_RULES, GET_DEFAULT_RULES = 1, 2, 4, 5
EPERM, ENOMEM, EFAULT, EINVAL = -1, -12, -14, -22
# Command 3 alone has a word for it where there is no memory for its own copy of the record; the first copy has none.
REFUSALS_OF_RULES = (EPERM, ENOMEM)
ROW = b"wlan-1-1"
# Copies that each command makes between the process and the kernel.
COPIES = {SET_PORTAL: 1, SET_GARDEN: 1, GET_GARDEN: 2, SET_GATEWAY: 1, GET_GATEWAY: 1, SET_CLIENTS: 1, GET_CLIENTS: 2,
          CHECK_CLIENT: 2}
# Those that ask for memory as well. The reply to command 9 is too large for an object.
ASK_FOR_MEMORY = (SET_PORTAL, SET_GARDEN, GET_GARDEN, SET_CLIENTS, GET_CLIENTS, CHECK_CLIENT)
# An address as the lab gives them to stations.
STATION = b"\2\0\0\4"
SUMMARY = "/proc/cp_dns_aRecord/summary"
STATUS_FILES = tuple(f"/proc/captive_portal/{name}" for name in ("status", "clients", "garden"))

faults = FaultInjection()
device = os.open("/dev/CP_dev", os.O_RDWR)
room = ctypes.create_string_buffer(65536)
for offset in range(0, 65536, 4096):  # each page is there before a call needs it
    room[offset] = b"\1"
libc.pread.argtypes = [ctypes.c_int, ctypes.c_ulong, ctypes.c_size_t, ctypes.c_long]
libc.pwrite.argtypes = libc.pread.argtypes


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


def content(path):
    with open(path, "rb") as file:
        return file.read()


def state():
    return {
        "lists": [plainly(GET_CLIENTS, list_record(sub)) for sub in (*GET_LISTS, GET_BEHAVIOR)],
        "rules": plainly(GET_GARDEN, garden_record(GET_RULES, 3)),
        "defaults": plainly(GET_GARDEN, garden_record(GET_DEFAULT_RULES, 0)),
        "gateway": plainly(GET_GATEWAY, bytes(4)),
        "status files": [content(path) for path in STATUS_FILES],
    }


def tell(name, failures, wanted, shortage=None):
    """`wanted` are the kinds of requests of which one at least must have failed, together for memory of either kind."""
    counts = {"copies": failures["copies"], "memory": failures["objects"] + failures["pages"]}
    if {kind for kind, count in counts.items() if count} != set(wanted):
        raise SystemExit(f"{name}: what failed is {told(failures)}; wanted {wanted}")
    print(f"    {name}: {told(failures)}" + (f"; without {shortage} pages" if shortage else ""), flush=True)


def fail_each(name, command, record, undo=(), also=(), refusals=(EPERM,)):
    """`undo` are the calls that bring the state back; `also` are states that a failure may leave besides those before
    and after, each given by the calls that bring it about; `refusals` are the results where there is no memory. What
    failed, by kind, and whether it was refused without pages."""

    def bring_back():
        for step in undo:
            plainly(*step)

    def look_at(where, result, failed):
        reply = room.raw[:len(record)]
        after = state()
        if not failed:
            expect(where, (0, whole, done), (result, reply, after))
        elif result in ((EPERM,) if failed == "copies" else refusals):
            expect(where, (record, before), (reply, after))
        elif result > 0:
            # A reply that could not be written.
            expect(where, (len(record), record, before), (result, reply, after))
        elif (result, reply) != (0, whole) or after not in (before, done, *halves):
            raise SystemExit(f"{where}: gave {result} and left something half done")
        bring_back()
        put(record)
        return after

    before = state()
    whole = plainly(command, record)
    done = state()
    if (whole, done) == (record, before):
        raise SystemExit(f"{name}: nothing tells whether it was done")
    bring_back()
    expect(f"{name}: undone", before, state())
    halves = []
    for steps in also:
        for step in steps:
            plainly(*step)
        halves.append(state())
        bring_back()
    failures = collections.Counter()
    address = put(record)
    for number, result, failed in faults.each(libc.ioctl, device, command, address):
        look_at(f"{name}, request {number} ({failed})", result, failed)
        if failed:
            failures[failed] += 1
    failures["copies"] = 0
    for number, result, failed in faults.each_copy(libc.ioctl, device, command, address):
        look_at(f"{name}, copy {number}", result, failed)
        failures["copies"] += failed is not None
    result, shortage = faults.call_without_pages(libc.ioctl, device, command, address)
    refused = look_at(f"{name}, without pages", result, shortage) != done
    tell(name, failures, ("copies", "memory") if command in ASK_FOR_MEMORY else ("copies",), shortage)
    expect(f"{name}: copies", COPIES[command], failures["copies"])
    return failures, refused


def fail_none(name, command, argument):
    """A command that asks for nothing that can fail."""
    wanted = system_call(libc.ioctl, device, command, argument)
    _, result, failed = next(faults.each(libc.ioctl, device, command, argument))
    expect(name, (wanted, None), (result, failed))
    print(f"    {name}: nothing that can fail", flush=True)


def commands():
    fail_each("1, portal mode", SET_PORTAL, struct.pack("<IiI16s", 1, 3, 1, b""),
              [(SET_PORTAL, struct.pack("<IiI16s", 1, 3, 0, b""))])
    # The kernel's file layer answers by a single number.
    fail_none("2, status", GET_PORTAL, put(struct.pack("<II", 2, 3).ljust(320, b"\0")))
    fail_each("3, garden switch", SET_GARDEN, garden_record(0, 3), [(SET_GARDEN, garden_record(0, 3, enable=0))],
              refusals=REFUSALS_OF_RULES)
    old, names = [b"old.example"], [b"a.example", b"b.example", b"*.c.example"]
    plainly(SET_GARDEN, garden_record(UPDATE_RULE, 3, old))
    plainly(SET_GARDEN, garden_record(UPDATE_DEFAULT_RULE, 0, old))
    fail_each("3, rules", SET_GARDEN, garden_record(UPDATE_RULE, 3, names),
              undo=[(SET_GARDEN, garden_record(UPDATE_RULE, 3, old))],
              also=[[(SET_GARDEN, garden_record(UPDATE_RULE, 3, names[:kept]))] for kept in range(len(names))],
              refusals=REFUSALS_OF_RULES)
    fail_each("3, default rules", SET_GARDEN, garden_record(UPDATE_DEFAULT_RULE, 0, names),
              undo=[(SET_GARDEN, garden_record(UPDATE_DEFAULT_RULE, 0, old))], refusals=REFUSALS_OF_RULES)
    fail_each("4, rules", GET_GARDEN, garden_record(GET_RULES, 3))
    fail_each("4, default rules", GET_GARDEN, garden_record(GET_DEFAULT_RULES, 0))
    fail_none("5, no command", UNKNOWN, put(bytes(4)))
    gateway = bytes([192, 168, 100, 254])
    plainly(SET_GATEWAY, gateway)
    fail_each("6, gateway", SET_GATEWAY, bytes([192, 168, 100, 1]), [(SET_GATEWAY, gateway)],
              also=[[(SET_GATEWAY, bytes(4))]])
    fail_each("7, gateway", GET_GATEWAY, bytes(4))
    for add, remove in LISTS.items():
        small, _ = fail_each(f"8, client, sub-command {add}", SET_CLIENTS, clients_record(add, 1),
                             [(SET_CLIENTS, clients_record(remove, 1))])
    some = [(SET_CLIENTS, clients_record(FLUSH_PORTAL)),
            *((SET_CLIENTS, clients_record(4, number)) for number in range(1, 4))]
    for step in some:
        plainly(*step)
    fail_each("8, flush", SET_CLIENTS, clients_record(FLUSH_PORTAL), some)
    fail_each("8, behaviour", SET_CLIENTS, clients_record(SET_BEHAVIOR, behavior=2, status=2),
              [(SET_CLIENTS, clients_record(SET_BEHAVIOR))])
    # With 50 addresses the index of clients is full.
    # Emptied first, it is as small as ever.
    full = [(SET_CLIENTS, clients_record(FLUSH_PORTAL)),
            *((SET_CLIENTS, clients_record(4, number)) for number in range(100, 150))]
    for step in full:
        plainly(*step)
    large, refused = fail_each("8, client that needs a larger index", SET_CLIENTS, clients_record(4, 200), full)
    if large["objects"] <= small["objects"] or not refused:
        raise SystemExit("the index did not grow, or without pages")
    fail_each("9, clients", GET_CLIENTS, list_record(8))
    plainly(SET_CLIENTS, clients_record(SET_BEHAVIOR, behavior=2, status=2))
    fail_each("9, behaviour", GET_CLIENTS, list_record(GET_BEHAVIOR))
    plainly(SET_CLIENTS, clients_record(SET_BEHAVIOR))
    fail_each("10, client looked for", CHECK_CLIENT, check_record(100))
    plainly(SET_CLIENTS, clients_record(FLUSH_PORTAL))
    fail_none("11, debug level", SET_DEBUG_LEVEL, 1)


def read_of_summary():
    """A listing shows what no listing has shown since the last write."""
    reader = os.open(SUMMARY, os.O_RDWR)
    address = ctypes.addressof(room)

    def select():
        os.pwrite(reader, b"all", 0)

    def look_at(where, result, failed):
        got = room.raw[:len(wanted)]
        if result == ENOMEM and failed in ("objects", "pages"):
            # Nothing was listed, so all of it still can be.
            expect(where, (untouched, wanted), (got, os.pread(reader, 65536, 0)))
        else:
            expect(where, len(wanted), result)
            expect(where, untouched if failed == "copies" else wanted, got)
            expect(where, empty, os.pread(reader, 65536, 0))
        select()
        put(untouched)

    select()
    wanted = os.pread(reader, 65536, 0)
    empty = os.pread(reader, 65536, 0)
    if len(wanted) < 8192:
        raise SystemExit(f"the listing is short: {wanted!r}")
    untouched = b"\x5a" * len(wanted)
    select()
    put(untouched)
    failures = collections.Counter()
    for number, result, failed in faults.each(libc.pread, reader, address, 65536, 0):
        look_at(f"read, request {number} ({failed})", result, failed)
        if failed:
            failures[failed] += 1
    failures["copies"] = 0
    for number, result, failed in faults.each_copy(libc.pread, reader, address, 65536, 0):
        look_at(f"read, copy {number}", result, failed)
        failures["copies"] += failed is not None
    result, shortage = faults.call_without_pages(libc.pread, reader, address, 65536, 0)
    look_at("read, without pages", result, "pages" if shortage else None)
    # Pages in one piece or in many: without any there is no room for the listing.
    expect("read, without pages", ENOMEM, result)
    tell("read of the proc file", failures, ("copies", "memory"), shortage)
    expect("read: copies", 1, failures["copies"])
    os.close(reader)


def write_of_summary():
    writer = os.open(SUMMARY, os.O_RDWR)
    os.pwrite(writer, b"all", 0)
    failures = collections.Counter()
    for number, result, failed in faults.each_copy(libc.pwrite, writer, put(b"mirel"), 5, 0):
        # A text that could not be read is none, and selects nothing new.
        header = os.pread(writer, 65536, 0).split(b"\n")[0]
        wanted = (EINVAL, b"target=all") if failed else (5, b"target=mirel")
        expect(f"write, request {number} ({failed})", wanted, (result, header.split()[-1]))
        if failed:
            failures[failed] += 1
    tell("write of the proc file", failures, ("copies",))
    expect("write: what failed", 1, failures["copies"])
    os.close(writer)


def status_files():
    address = ctypes.addressof(room)

    def call_once(call):
        """What failed of a file that was opened just now: such a reader has no text yet."""
        reader = os.open(path, os.O_RDONLY)
        result, failed = call(reader)
        if result >= 0:
            expect(path, wanted[:result], room.raw[:result])
        elif (failed, result) not in (("copies", EFAULT), ("objects", ENOMEM), ("pages", ENOMEM)):
            raise SystemExit(f"{path}: gave {result} with {failed} failing")
        os.close(reader)
        expect(path, wanted, content(path))
        return failed

    plainly(SET_CLIENTS, clients_record(4, 1))
    for path in STATUS_FILES:
        wanted = content(path)
        failures = collections.Counter()
        number, failed = 0, True
        while failed:
            number += 1
            failed = call_once(lambda reader: faults.call(number, libc.pread, reader, address, 65536, 0))
            if failed:
                failures[failed] += 1
        failed = call_once(lambda reader: next(faults.each_copy(libc.pread, reader, address, 65536, 0))[1:])
        expect(f"{path}: first copy", "copies", failed)
        failures["copies"] = 1
        tell(f"read of {path}", failures, ("copies", "memory"))
    plainly(SET_CLIENTS, clients_record(FLUSH_PORTAL))


def open_device():
    os.close(device)
    path = ctypes.create_string_buffer(b"/dev/CP_dev")
    failures = collections.Counter()
    for number, result, failed in faults.each(libc.open, path, os.O_RDWR):
        if result >= 0:
            os.close(result)
        elif not failed:
            raise SystemExit(f"open, request {number}: gave {result}")
        # Whatever it gave, nobody holds the device now.
        os.close(os.open("/dev/CP_dev", os.O_RDWR))
        if failed:
            failures[failed] += 1
    # The file itself is an object; the name is copied by another call of the kernel's.
    if not failures["objects"]:
        raise SystemExit(f"open: no object failed, but {told(failures)}")
    print(f"    open of the device: {told(failures)}", flush=True)


commands()
read_of_summary()
write_of_summary()
status_files()
open_device()
