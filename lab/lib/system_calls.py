"""The system calls that load and unload a module, for programs that time them, or make them when no program can start."""

import ctypes
import os

FINIT_MODULE, DELETE_MODULE = {"x86_64": (313, 176), "aarch64": (273, 106)}[os.uname().machine]

libc = ctypes.CDLL(None, use_errno=True)


def _call(number, *arguments):
    if libc.syscall(ctypes.c_long(number), *arguments):
        error = ctypes.get_errno()
        raise OSError(error, os.strerror(error))


def load_module(file):
    """Loads the module in the file that is open as `file`, or raises OSError."""
    _call(FINIT_MODULE, ctypes.c_int(file), b"", 0)


def unload_module():
    """Unloads captive_portal, or raises OSError."""
    _call(DELETE_MODULE, b"captive_portal", os.O_NONBLOCK)
