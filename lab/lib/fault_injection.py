"""Fails one request of one system call of this process, by the kernel's own fault injection: an allocation of the slab,
and, where the kernel has the switches, a page or a copy between the kernel and the process.

What the call leaves to other threads or to softirq context is not reached.
"""

import atexit
import ctypes
import errno
import os

DEBUG = "/sys/kernel/debug"
POINTS = ("failslab", "fail_page_alloc", "fail_usercopy")
# No stack trace for each failure, and those that could have waited for memory fail too.
SETTINGS = {"verbose": "0", "ignore-gfp-wait": "N", "ignore-gfp-highmem": "N", "min-order": "0"}

libc = ctypes.CDLL(None, use_errno=True)
libc.ioctl.argtypes = [ctypes.c_int, ctypes.c_ulong, ctypes.c_ulong]
libc.syscall.restype = ctypes.c_long


def system_call(function, *arguments):
    """The result, or the negative error."""
    result = function(*arguments)
    return -ctypes.get_errno() if result == -1 else result


class FaultInjection:
    def __init__(self):
        self.points = [point for point in POINTS if os.path.isdir(f"{DEBUG}/{point}")]
        if "failslab" not in self.points:
            raise SystemExit("this kernel cannot fail an allocation on order")
        for point in self.points:
            for name, value in SETTINGS.items():
                if os.path.exists(f"{DEBUG}/{point}/{name}"):
                    with open(f"{DEBUG}/{point}/{name}", "w", encoding="ascii") as file:
                        file.write(value)
        # The leak detector says under a lock of its own that it is short of memory, and the console takes others. What
        # is said is in the log all the same.
        with open("/proc/sys/kernel/printk", encoding="ascii") as file:
            atexit.register(self._say_from, file.read().split()[0])
        self._say_from("1")
        self.order = os.open("/proc/thread-self/fail-nth", os.O_RDWR)

    @staticmethod
    def _say_from(level):
        with open("/proc/sys/kernel/printk", "w", encoding="ascii") as file:
            file.write(level)

    def call(self, number, function, *arguments):
        """The result with the number-th request failing, 1 being the first, and whether there was such a request."""
        text = b"%d" % number
        os.pwrite(self.order, text, 0)
        result = system_call(function, *arguments)
        return result, self._take_back()

    # Reading and writing the order are copies too, and count.
    def _take_back(self):
        try:
            left = int(os.pread(self.order, 16, 0).strip(b"\0\n"))
        except OSError as error:
            if error.errno != errno.EFAULT:
                raise
            return False
        if left:
            try:
                os.pwrite(self.order, b"0", 0)
            except OSError as error:
                if error.errno != errno.EFAULT:
                    raise
        return left == 0

    def each(self, function, *arguments):
        """Calls with the first request failing, then the second, until there is none to fail: number, result, and
        whether one failed, which is false the last time."""
        number = 0
        failed = True
        while failed:
            number += 1
            result, failed = self.call(number, function, *arguments)
            yield number, result, failed
