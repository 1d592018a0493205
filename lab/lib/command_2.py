"""Calls the control device as a native or, on x86, as a 32-bit program would.

A 32-bit system call is the instruction "int $0x80" with the 32-bit call numbers; it takes 32-bit addresses, so
buffers and code lie below 4 GiB.
"""

import ctypes
import ctypes.util
import mmap
import os
import struct
import sys

PAGE = 4096
MAP_32BIT = 0x40
IOCTL_32 = 54  # number of ioctl among the 32-bit calls
GET_STATUS, SET_GATEWAY, GET_GATEWAY = 2, 6, 7

libc = ctypes.CDLL(None, use_errno=True)
libc.mmap.restype = ctypes.c_void_p
libc.mmap.argtypes = [ctypes.c_void_p, ctypes.c_size_t] + [ctypes.c_int] * 3 + [ctypes.c_long]


def page_before_nothing(kind, executable=False):
    """A page, below 4 GiB for a 32-bit caller, and after it nothing."""
    protection = mmap.PROT_READ | mmap.PROT_WRITE | (mmap.PROT_EXEC if executable else 0)
    low = MAP_32BIT if kind == "compat" else 0
    address = libc.mmap(None, 2 * PAGE, protection, mmap.MAP_PRIVATE | mmap.MAP_ANONYMOUS | low, -1, 0)
    if address in (None, ctypes.c_void_p(-1).value) or (low and address >= 1 << 32):
        raise SystemExit("no such page")
    libc.munmap(ctypes.c_void_p(address + PAGE), ctypes.c_size_t(PAGE))
    return address


def native_ioctl(device, command, address):
    libc.ioctl.argtypes = [ctypes.c_int, ctypes.c_ulong, ctypes.c_void_p]
    result = libc.ioctl(device, command, address)
    return -ctypes.get_errno() if result == -1 else result


def compat_ioctl():
    # push rbx; mov eax, 54; mov ebx, edi; mov ecx, esi; int 0x80; pop rbx; ret   (edx is the third argument already)
    code = b"\x53\xb8" + struct.pack("<I", IOCTL_32) + b"\x89\xfb\x89\xf1\xcd\x80\x5b\xc3"
    page = page_before_nothing("compat", executable=True)
    ctypes.memmove(page, code, len(code))
    function = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_int, ctypes.c_uint, ctypes.c_uint)(page)
    return lambda device, command, address: function(device, command, address)


def answers_of_the_module(ioctl, device, address):
    """What the module makes of a 32-bit caller's command 2, past the plain question."""
    def ask(sub_command, row):
        sent = struct.pack("<II", sub_command, row) + b"\xa5" * 312
        ctypes.memmove(address, sent, len(sent))
        result = ioctl(device, GET_STATUS, address)
        return result, ctypes.string_at(address, len(sent)), sent

    result, got, sent = ask(2, 24)
    assert result == 0 and struct.unpack_from("<IIIIII", got) == (2, 24, 0, 0, 0, 0) and got[28:] == sent[28:], got[:32]
    # A row that is none, and a sub-command that is none, come back as sent.
    for sub_command, row in (2, 25), (2, 0xFFFFFFFF), (3, 0):
        result, got, sent = ask(sub_command, row)
        assert result == 0 and got == sent, (sub_command, row, result)
    # A record that cannot be read, in whole or at its end.
    for bad in 0, 0xFFFFF000, address + PAGE - 319:
        assert ioctl(device, GET_STATUS, bad) == -1, hex(bad)
    # One that can be read and not written: how many bytes were not.
    ask(2, 0)
    assert libc.mprotect(ctypes.c_void_p(address), ctypes.c_size_t(PAGE), mmap.PROT_READ) == 0
    assert ioctl(device, GET_STATUS, address) == 320


def main(kind):
    ioctl = native_ioctl if kind == "native" else compat_ioctl()
    device = os.open("/dev/CP_dev", os.O_RDWR)
    record = page_before_nothing(kind)

    # The gateway's commands reach the module.
    ctypes.memmove(record, bytes([192, 168, 100, 254]), 4)
    assert ioctl(device, SET_GATEWAY, record) == 0
    ctypes.memset(record, 0, 4)
    assert ioctl(device, GET_GATEWAY, record) == 0
    assert ctypes.string_at(record, 4) == bytes([192, 168, 100, 254]), "the gateway did not come back"
    # An unknown command is EPERM, never ENOTTY.
    assert ioctl(device, 5, record) == -1
    assert ioctl(device, 12, record) == -1

    # Command 2: sub-command 2, row 0, the rest a pattern.
    sent = struct.pack("<II", 2, 0) + b"\xa5" * 312
    ctypes.memmove(record, sent, len(sent))
    result = ioctl(device, GET_STATUS, record)
    got = ctypes.string_at(record, len(sent))
    first, = struct.unpack_from("<I", got)
    mark, mode, garden, block = struct.unpack_from("<IIII", got, 8)
    print(f"    {kind}: result {result}, first word {first}, mark {mark:#x}")
    if mark == 5200:
        assert result == 0 and (mode, garden, block) == (0, 0, 1) and got[28:] == sent[28:]
        print(f"    {kind}: the module answered")
        answered = "module"
    else:
        block_size = os.fstat(device).st_blksize
        assert result == 0 and got[4:] == sent[4:] and first == os.statvfs("/dev").f_bsize, (result, first, block_size)
        print(f"    {kind}: the file layer answered with the block size of the device's file system, {first}")
        answered = "file layer"
    if kind == "compat" and answered == "module":
        answers_of_the_module(ioctl, device, record)
    release = tuple(int(part) for part in os.uname().release.split("-")[0].split(".")[:2])
    # In the course of 5.x the file layer took this number of 32-bit callers over.
    if kind == "native" or not (5, 0) <= release < (5, 10):
        wanted = "module" if kind == "compat" and release < (5, 0) else "file layer"
        assert answered == wanted, f"{kind} caller on {os.uname().release}: wanted the {wanted}"
    os.close(device)


main(sys.argv[1])
