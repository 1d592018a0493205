"""Loads a module by the system call itself, while the kernel refuses something to this process.

usage: load_module.py MODULE threads          no thread can be made, a kernel's own neither
       load_module.py MODULE allocation N     the N-th allocation of the call fails, where the kernel can do that;
                                              says "not reached" when there were fewer
Prints "loaded", or the error's name.
"""

import ctypes
import errno
import os
import sys

FINIT_MODULE = 313  # x86-64, User Mode Linux as well
THREADS = "/proc/sys/kernel/threads-max"


def written(name, text):
    with open(name, "w") as file:
        file.write(text)


def main(module, what, number="0"):
    libc = ctypes.CDLL(None, use_errno=True)
    libc.syscall.argtypes = [ctypes.c_long, ctypes.c_int, ctypes.c_char_p, ctypes.c_int]
    file = os.open(module, os.O_RDONLY)
    left = "0"
    if what == "threads":
        with open(THREADS) as limit:
            before = limit.read()
        written(THREADS, "1")
        try:
            result = libc.syscall(FINIT_MODULE, file, b"", 0)
            error = ctypes.get_errno()
        finally:
            written(THREADS, before)
    else:
        order = os.open("/proc/self/fail-nth", os.O_RDWR)
        os.write(order, number.encode())
        result = libc.syscall(FINIT_MODULE, file, b"", 0)
        error = ctypes.get_errno()
        left = os.pread(order, 16, 0).decode().strip("\0\n ")
        os.pwrite(order, b"0", 0)
    print("loaded" if result == 0 else errno.errorcode[error], end="")
    print(" not reached" if left != "0" else "")


main(*sys.argv[1:])
