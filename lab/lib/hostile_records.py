"""What a process can hand to the control device that is no record: memory that is not there or may not be written,
addresses of the kernel, numbers out of every range, names without an end.  Each call gives exactly the result of the
manual, include/captive_portal/control.h, and what is refused changes nothing.

usage: hostile_records.py
"""

import ctypes
import os
import struct

SET_PORTAL, SET_GARDEN, GET_GARDEN, SET_GATEWAY, GET_GATEWAY = 1, 3, 4, 6, 7
SET_CLIENTS, GET_CLIENTS, CHECK_CLIENT, SET_DEBUG = 8, 9, 10, 11
SIZES = {SET_PORTAL: 28, SET_GARDEN: 3376, GET_GARDEN: 3376, SET_GATEWAY: 4, GET_GATEWAY: 4, SET_CLIENTS: 52,
         GET_CLIENTS: 16592, CHECK_CLIENT: 32}
EXCHANGED = (GET_GARDEN, GET_CLIENTS, CHECK_CLIENT)
ADD_LOGIN, DELETE_LOGIN, GET_LOGIN, CHECK_LOGIN, FLUSH_PORTAL = 4, 5, 8, 19, 9
UPDATE_RULE, GET_RULES = 2, 4
EPERM, EINVAL = -1, -22
PAGE = 4096
READ, WRITE = 1, 2
PRIVATE_ANONYMOUS = 0x22
# A copy that meets memory which may not be written ends there on x86; other processors write so many bytes at once, all
# or none of which count.
STORED_AT_ONCE = 1 if os.uname().machine == "x86_64" else 16
# The kernel's halves, the hole between, the vsyscall page, addresses whose end wraps, and pages that nobody maps.
NOWHERE = (0, 1, 0x7FFFFFFFFFFFF000, 0x0000800000000000, 0xFFFF888000000000, 0xFFFFFFFF81000000, 0xFFFFFFFFFF600000,
           0xFFFFFFFFFFFFF000, 0xFFFFFFFFFFFFFFFF)

libc = ctypes.CDLL(None, use_errno=True)
libc.mmap.restype = ctypes.c_void_p
libc.mmap.argtypes = [ctypes.c_void_p, ctypes.c_size_t] + [ctypes.c_int] * 3 + [ctypes.c_long]
libc.munmap.argtypes = [ctypes.c_void_p, ctypes.c_size_t]
libc.mprotect.argtypes = [ctypes.c_void_p, ctypes.c_size_t, ctypes.c_int]
libc.ioctl.argtypes = [ctypes.c_int, ctypes.c_ulong, ctypes.c_ulong]

device = os.open("/dev/CP_dev", os.O_RDWR)
calls = 0


def call(command, address):
    global calls
    calls += 1
    result = libc.ioctl(device, command, address)
    return -ctypes.get_errno() if result == -1 else result


def expect(what, wanted, got):
    if wanted != got:
        raise SystemExit(f"{what}: wanted {wanted!r:.200}, got {got!r:.200}")


def pages(count):
    return libc.mmap(None, count * PAGE, READ | WRITE, PRIVATE_ANONYMOUS, -1, 0)


def pages_before_nothing(count):
    """Pages behind which nothing is mapped; the address of their end."""
    start = pages(count + 1)
    libc.munmap(start + count * PAGE, PAGE)
    return start + count * PAGE


room = pages(8)


def with_record(command, record):
    """A call with the record in good memory: the result, and the record after it."""
    ctypes.memmove(room, record, len(record))
    result = call(command, room)
    return result, ctypes.string_at(room, len(record))


def clients_record(command, name, mac=bytes(6)):
    return struct.pack("<III16s16s6s2x", command, 0, 0, name, b"", mac)


def check_record(name, mac):
    return struct.pack("<I16s6s2xI", CHECK_LOGIN, name, mac, 7)


def garden_record(command, row, count, rules=()):
    return struct.pack("<IiIi", command, row, 1, count) + b"".join(
        struct.pack("<III128s", 0, 0, 0, name) for name in rules).ljust(24 * 140, b"\0")


def state():
    """All that the device tells, to see that nothing of it changed."""
    told = [with_record(GET_GATEWAY, bytes(4))]
    for row in range(24):
        told.append(with_record(GET_GARDEN, garden_record(GET_RULES, row, 0)))
    for row in (b"wlan-1-1", b"wlan-1-8", b"wlan-2-1", b"wlan-3-8"):
        for command in (6, 7, 8, 28, 33):
            told.append(with_record(GET_CLIENTS, struct.pack("<III16s16s", command, 0, 0, row, b"").ljust(16592, b"\0")))
    return told


def bytes_that_are_not_there():
    before = state()
    gateway = before[0][1]
    for command, size in SIZES.items():
        end = pages_before_nothing(size // PAGE + 1)
        nowhere = [*NOWHERE, end, end + 1]
        partly = [end - there for there in {1, size // 2, size - 1} if 0 < there < size]
        for address in nowhere:
            result = call(command, address)
            wanted = {SET_GATEWAY: 0, GET_GATEWAY: 4}.get(command, EPERM)
            expect(f"command {command} at {address:#x}", wanted, result)
            if command == SET_GATEWAY:
                expect("a gateway that is nowhere", (0, bytes(4)), with_record(GET_GATEWAY, b"\xff" * 4))
                expect("the gateway again", 0, with_record(SET_GATEWAY, gateway)[0])
        for address in partly:
            if command in (SET_GATEWAY, GET_GATEWAY):
                continue
            ctypes.memset(address, 1, end - address)
            expect(f"command {command}, {end - address} bytes of it there", EPERM, call(command, address))
        # In full, up to the last byte before nothing, it is a record like any other.
        ctypes.memset(end - size, 0xFE, size)
        wanted = 0 if command in (*EXCHANGED, SET_GATEWAY, GET_GATEWAY) else EPERM
        expect(f"command {command} before nothing", wanted, call(command, end - size))
        if command == SET_GATEWAY:
            expect("the gateway again", 0, with_record(SET_GATEWAY, gateway)[0])
    expect("what the device tells", before, state())


def pages_that_may_not_be_written():
    # A reply that cannot be written: so many bytes are missing, from a page's border on.
    for command in (*EXCHANGED, GET_GATEWAY):
        size = SIZES[command]
        count = size // PAGE + 2
        for there in {0, size // 8 * 4, *range(PAGE - 100, size, PAGE)}:
            start = pages(2 * count)
            border = start + count * PAGE
            ctypes.memset(border - there, 0x5A, size)
            libc.mprotect(border, count * PAGE, READ)
            missing = call(command, border - there)
            if not size - there <= missing <= min(size, size - there + STORED_AT_ONCE - 1):
                raise SystemExit(f"command {command} with {there} of {size} bytes that may be written: {missing} are missing")
            libc.munmap(start, 2 * count * PAGE)
    # What is only taken may lie where nobody may write.
    start = pages(1)
    ctypes.memmove(start, clients_record(ADD_LOGIN, b"wlan-3-8", b"\2\0\0\0\0\x31"), 52)
    libc.mprotect(start, PAGE, READ)
    expect("a record in memory that is only read", 0, call(SET_CLIENTS, start))
    expect("it counts", 1, is_logged_in(b"wlan-3-8", b"\2\0\0\0\0\x31"))
    expect("flush", 0, with_record(SET_CLIENTS, clients_record(FLUSH_PORTAL, b"wlan-3-8"))[0])


def is_logged_in(name, mac):
    result, record = with_record(CHECK_CLIENT, check_record(name, mac))
    expect("a check", 0, result)
    return struct.unpack_from("<I", record, 28)[0]


def numbers_out_of_range():
    before = state()
    ctypes.memset(room, 0, 5 * PAGE)
    for command in (0, 5, 12, 13, 255, 256, 0x4305, 0x80000001, 0x80000008, 0xC0104309, 0x7FFFFFFF, 0xFFFFFFFF):
        expect(f"command {command:#x}", EPERM, call(command, room))
    for sub in (2, 3, 4, 6, 10, 255, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF):
        expect(f"portal sub-command {sub:#x}", EPERM, with_record(SET_PORTAL, struct.pack("<IiI16s", sub, 0, 1, b""))[0])
    for sub in (4, 5, 6, 255, 0x80000000, 0xFFFFFFFF):
        expect(f"garden sub-command {sub:#x}", EPERM, with_record(SET_GARDEN, garden_record(sub, 0, 1, [b"x"]))[0])
    for sub in (6, 11, 13, 36, 255, 0x80000000, 0xFFFFFFFF):
        expect(f"client sub-command {sub:#x}", EPERM, with_record(SET_CLIENTS, clients_record(sub, b"wlan-1-1"))[0])
    # What asks and is not known comes back as it was sent.
    for command in EXCHANGED:
        for sub in (0xFFFFFFFF, 0x80000000, 1000):
            sent = struct.pack("<I", sub) + b"\x5a" * (SIZES[command] - 4)
            wanted = sent[:28] + bytes(4) if command == CHECK_CLIENT else sent
            expect(f"command {command}, sub-command {sub:#x}", (0, wanted), with_record(command, sent))
    for row in (28, 29, 255, 256, 0x7FFFFFFF, -1, -28, -0x80000000):
        for sub in (0, 1, 5, 8):
            record = struct.pack("<IiI16s", sub, row, 1, b"192.0.2.1")
            expect(f"portal sub-command {sub} of row {row}", EPERM, with_record(SET_PORTAL, record)[0])
        for sub in (0, UPDATE_RULE):
            expect(f"garden sub-command {sub} of row {row}", EPERM,
                   with_record(SET_GARDEN, garden_record(sub, row, 1, [b"x"]))[0])
        sent = garden_record(GET_RULES, row, 0x5A5A5A5A, [b"z"] * 24)
        expect(f"rules of row {row}", (0, sent), with_record(GET_GARDEN, sent))
    for count in (25, 26, 36, 1000, 0x7FFFFFFF):
        for sub in (1, UPDATE_RULE, 3):
            expect(f"{count} rules, sub-command {sub}", EINVAL,
                   with_record(SET_GARDEN, garden_record(sub, 0, count, [b"x"] * 24))[0])
    expect("what the device tells", before, state())
    # Fewer than none is none.
    for count in (-1, -24, -0x80000000):
        expect("a rule", 0, with_record(SET_GARDEN, garden_record(UPDATE_RULE, 3, 1, [b"x"]))[0])
        expect(f"{count} rules", 0, with_record(SET_GARDEN, garden_record(UPDATE_RULE, 3, count, [b"x"] * 24))[0])
        record = with_record(GET_GARDEN, garden_record(GET_RULES, 3, 9))[1]
        expect(f"rules after {count}", 0, struct.unpack_from("<i", record, 12)[0])
    for level in (0x7FFFFFFF, 0x80000000, 0xFFFFFFFFFFFFFFFF, 0x1234567800000000, 1):
        expect(f"debug level {level:#x}", 0, call(SET_DEBUG, level))


# What the field holds, all of its 16 bytes, and the row that it is taken for.
NAMES = {
    b"wlan-1-1": b"wlan-1-1",
    b"wlan-1-1\0garbage": b"wlan-1-1",
    b"wlan-000000001-1": b"wlan-1-1",
    b"wlan-536870913-1": b"wlan-1-1",
    b"wlan- 1-\t1": b"wlan-1-1",
    b"wlan-\xa01-1": b"wlan-1-1",
    b"wlan-1-1%s%n%x": b"wlan-1-1",
    b"wlan-1-1\xff\xfe\xfd": b"wlan-1-1",
    b"wlan--1-24": b"wlan-1-8",
    b"wlan-2-0": b"wlan-1-8",
    b"wlan-1-9": b"wlan-2-1",
    b"wlan-1-24": b"wlan-3-8",
    b"wlan-3-8\n": b"wlan-3-8",
    b"": None,
    b"\xff" * 16: None,
    b"%s%s%s%n%n%n%n%p": None,
    b"wlan-%d-%d": None,
    b"wlan-0x1-1": None,
    b"wlan-+1-1": None,
    b"wlan-1": None,
    b"wlan-1-": None,
    b"wlan-1--1": None,
    b"wlan-4-1": None,
    b"wlan-4294967297-": None,
    b"wlan-99999999-99": None,
    b"wlan-1\0-1": None,
    b"Wlan-1-1": None,
    b"../../wlan-1-1": None,
    b"all": None,
}
ROWS = (b"wlan-1-1", b"wlan-1-8", b"wlan-2-1", b"wlan-3-8")


def names_without_an_end():
    mac = b"\2\0\0\0\0\x41"
    for name, row in NAMES.items():
        expect(f"login at {name}", 0, with_record(SET_CLIENTS, clients_record(ADD_LOGIN, name, mac))[0])
        expect(f"rows of {name}", [int(one == row) for one in ROWS], [is_logged_in(one, mac) for one in ROWS])
        expect(f"{name} itself", int(row is not None), is_logged_in(name, mac))
        expect(f"logout at {name}", 0, with_record(SET_CLIENTS, clients_record(DELETE_LOGIN, name, mac))[0])
        expect(f"rows after {name}", [0] * 4, [is_logged_in(one, mac) for one in ROWS])
    # Texts as long as their fields, and of every byte but NUL.
    for text in (b"x" * 128, bytes(range(1, 129)), bytes(range(128, 256)), b"%s%n" * 32):
        expect("a rule", 0, with_record(SET_GARDEN, garden_record(UPDATE_RULE, 3, 24, [text] * 24))[0])
        record = with_record(GET_GARDEN, garden_record(GET_RULES, 3, 0))[1]
        for i in range(24):
            expect("its text", text[:127] + b"\0", record[16 + 140 * i + 12:16 + 140 * i + 140])
    expect("no rules", 0, with_record(SET_GARDEN, garden_record(UPDATE_RULE, 3, 0))[0])
    for text in (b"192.168.1.1" * 2, b"\xff" * 16, b"%s%s%s%s%s%s%s%s", b"." * 16, b"999.999.999.999."):
        expect("a logout address", 0, with_record(SET_PORTAL, struct.pack("<IiI16s", 8, 23, 0, text[:16]))[0])
    expect("none", 0, with_record(SET_PORTAL, struct.pack("<IiI16s", 8, 23, 0, b""))[0])


def main():
    expect("a gateway", 0, with_record(SET_GATEWAY, bytes([192, 168, 100, 254]))[0])
    expect("a rule", 0, with_record(SET_GARDEN, garden_record(UPDATE_RULE, 0, 1, [b"www.example.net"]))[0])
    expect("a client", 0, with_record(SET_CLIENTS, clients_record(ADD_LOGIN, b"wlan-1-1", b"\2\0\0\0\0\1"))[0])
    bytes_that_are_not_there()
    pages_that_may_not_be_written()
    numbers_out_of_range()
    names_without_an_end()
    expect("flush", 0, with_record(SET_CLIENTS, clients_record(FLUSH_PORTAL, b"all"))[0])
    print(f"    {calls} calls")


main()
