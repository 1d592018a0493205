"""Every command of the control device from a native caller and from a 32-bit program: results, records, and what was
written behind them.

usage: callers_of_32_bits.py

The 32-bit program is made here, byte by byte: it opens the device, makes one call with the record that lies in its only
segment, and writes the result, and then the record, to its standard output.
"""

import ctypes
import errno
import os
import struct
import subprocess
import tempfile

BASE, CODE, RECORD = 0x10000000, 0x1000, 0x2000
EXIT, WRITE, OPEN, IOCTL = 1, 4, 5, 54  # among the 32-bit calls
BEHIND = b"\xc3" * 64

libc = ctypes.CDLL(None, use_errno=True)
libc.ioctl.argtypes = [ctypes.c_int, ctypes.c_ulong, ctypes.c_void_p]


def program(command, argument, record):
    """A 32-bit program of one segment; `argument` None stands for the record's address."""
    result, name = BASE + CODE - 64, BASE + CODE - 32
    address = BASE + RECORD if argument is None else argument
    le = lambda number: struct.pack("<I", number & 0xFFFFFFFF)
    call = b"\xcd\x80"
    code = b"\xb8" + le(OPEN) + b"\xbb" + le(name) + b"\xb9" + le(os.O_RDWR) + b"\x31\xd2" + call
    code += b"\x89\xc3" + b"\xb8" + le(IOCTL) + b"\xb9" + le(command) + b"\xba" + le(address) + call
    code += b"\xa3" + le(result)
    for start, length in ((result, 4), (BASE + RECORD, len(record))):
        code += b"\xb8" + le(WRITE) + b"\xbb" + le(1) + b"\xb9" + le(start) + b"\xba" + le(length) + call
    code += b"\xb8" + le(EXIT) + b"\x31\xdb" + call
    header = b"\x7fELF\x01\x01\x01" + bytes(9)
    header += struct.pack("<HHIIIIIHHHHHH", 2, 3, 1, BASE + CODE, 52, 0, 0, 52, 32, 1, 0, 0, 0)
    size = RECORD + len(record)
    header += struct.pack("<IIIIIIII", 1, 0, BASE, BASE, size, size, 7, 0x1000)
    image = (header.ljust(CODE - 32, b"\0") + b"/dev/CP_dev").ljust(CODE, b"\0") + code
    return image.ljust(RECORD, b"\0") + record


def compat(command, argument, record):
    with tempfile.NamedTemporaryFile(dir="/run", delete=False) as file:
        file.write(program(command, argument, record))
    os.chmod(file.name, 0o755)
    try:
        said = subprocess.run([file.name], stdout=subprocess.PIPE, check=True).stdout
    finally:
        os.unlink(file.name)
    assert len(said) == 4 + len(record), f"command {command}: the 32-bit program wrote {len(said)} bytes"
    return struct.unpack_from("<i", said)[0], said[4:]


def native(command, argument, record):
    device = os.open("/dev/CP_dev", os.O_RDWR)
    room = ctypes.create_string_buffer(record, len(record))
    result = libc.ioctl(device, command & 0xFFFFFFFF, ctypes.addressof(room) if argument is None else argument)
    result = -ctypes.get_errno() if result == -1 else result
    os.close(device)
    return result, room.raw


def padded(record, size):
    return record.ljust(size, b"\x5a")


def records():
    """(what, command, argument, record, wanted result); each changes what a later one reads."""
    mac = b"\2\0\0\0\0\x41"
    client = lambda sub: struct.pack("<III16s16s6s2x", sub, 0, 0, b"wlan-1-1", b"", mac)
    rule = struct.pack("<IIi128s", 0, 0, 0, b"www.example.net")
    yield "0, which is none", 0, None, bytes(4), -errno.EPERM
    yield "1, portal on", 1, None, struct.pack("<IiI16s", 0, 0, 1, b""), 0
    yield "1, an interface that is none", 1, None, struct.pack("<IiI16s", 0, 99, 1, b""), -errno.EPERM
    yield "3, a rule", 3, None, padded(struct.pack("<IiIi", 2, 0, 1, 1) + rule, 3376), 0
    yield "3, too many rules", 3, None, padded(struct.pack("<IiIi", 2, 0, 1, 25) + rule, 3376), -errno.EINVAL
    yield "4, the rules", 4, None, padded(struct.pack("<IiIi", 4, 0, 0, 0), 3376), 0
    yield "5, which is none", 5, None, bytes(4), -errno.EPERM
    yield "6, a gateway", 6, None, bytes([192, 168, 100, 254]), 0
    yield "7, the gateway", 7, None, b"\xff" * 4, 0
    yield "8, a login", 8, None, client(4), 0
    yield "9, the logins", 9, None, padded(struct.pack("<III16s16s", 8, 0, 0, b"wlan-1-1", b""), 16592), 0
    yield "10, a check", 10, None, struct.pack("<I16s6s2xI", 19, b"wlan-1-1", mac, 7), 0
    yield "8, a logout", 8, None, client(5), 0
    yield "10, the check again", 10, None, struct.pack("<I16s6s2xI", 19, b"wlan-1-1", mac, 7), 0
    yield "11, a debug level", 11, 2, bytes(4), 0
    yield "11, the least", 11, 0x80000000, bytes(4), 0
    yield "11, the default", 11, 1, bytes(4), 0
    yield "12, which is none", 12, None, bytes(4), -errno.EPERM
    yield "-1, which is none", -1, None, bytes(4), -errno.EPERM
    # Records that are not there, for either width.
    for command, result in ((1, -errno.EPERM), (3, -errno.EPERM), (4, -errno.EPERM), (6, 0), (7, 4), (8, -errno.EPERM),
                            (9, -errno.EPERM), (10, -errno.EPERM)):
        yield f"{command}, a record at 16", command, 16, bytes(4), result
        yield f"{command}, a record at the end of 32 bits", command, 0xFFFFFFF0, bytes(4), result


def told(way):
    """What every call gives, this caller alone having a say."""
    return [(what, wanted, *way(command, argument, record + BEHIND), record)
            for what, command, argument, record, wanted in records()]


def main():
    wide, narrow = told(native), told(compat)
    wrong = 0
    for (what, wanted, result, came, record), (_, _, result_32, came_32, _) in zip(wide, narrow):
        same = result == result_32 == wanted and came == came_32 and came.endswith(BEHIND)
        changed = "as sent" if came[:len(record)] == record else "filled in"
        print(f"    command {what}: {result_32}, the record {changed}" + ("" if same else f"; WRONG, native {result}"))
        wrong += not same
    # What the calls did is there, not only that they agree.
    state = {what: came for what, _, _, came, _ in narrow}
    assert struct.unpack_from("<i", state["4, the rules"], 12)[0] == 1
    assert state["4, the rules"][28:43] == b"www.example.net"
    assert state["7, the gateway"][:4] == bytes([192, 168, 100, 254])
    assert struct.unpack_from("<I", state["10, a check"], 28)[0] == 1
    assert struct.unpack_from("<I", state["10, the check again"], 28)[0] == 0
    # Number 2 is the file layer's own from 5.0 on. Before, the two callers get answers of two: lab/lib/command_2.py holds
    # which, on those kernels too, and here is only told what came.
    record = padded(struct.pack("<II", 2, 0), 320) + BEHIND
    (result, came), (result_32, came_32) = native(2, None, record), compat(2, None, record)
    print(f"    command 2: {result_32}, the first word {struct.unpack_from('<I', came_32)[0]}")
    if tuple(int(part) for part in os.uname().release.split("-")[0].split(".")[:2]) >= (5, 0):
        wrong += not (result == result_32 == 0 and came == came_32 and came[4:] == record[4:])
    print(f"    {len(narrow) + 1} calls of each")
    raise SystemExit(f"{wrong} calls differ" if wrong else 0)


main()
