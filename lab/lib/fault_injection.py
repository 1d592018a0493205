"""Fails one request of one system call of this process, by the kernel's own fault injection: an object of the slab,
pages, or a copy of a block between the kernel and the process. Or every request for pages of the call.

What the call leaves to other threads or to softirq context is not reached, nor are single numbers that the kernel
copies (get_user, put_user), of which the module has none.
"""

import atexit
import ctypes
import errno
import os

DEBUG = "/sys/kernel/debug"
# The kernel's names, and what fails.
POINTS = {"failslab": "objects", "fail_page_alloc": "pages", "fail_usercopy": "copies"}
# The kernel takes one off a point's "times" for each failure, which tells what it was that failed.
MANY = 1000000
LONGEST_SHORTAGE = 1000
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
        for point, what in POINTS.items():
            if not os.path.isdir(f"{DEBUG}/{point}"):
                raise SystemExit(f"this kernel cannot fail {what} on order: it has no {point}")
            for name, value in SETTINGS.items():
                if os.path.exists(f"{DEBUG}/{point}/{name}"):
                    self._set(point, name, value)
            self._set(point, "times", str(MANY))
        # The leak detector says under a lock of its own that it is short of memory, and the console takes others. What
        # is said is in the log all the same.
        with open("/proc/sys/kernel/printk", encoding="ascii") as file:
            atexit.register(self._say_from, file.read().split()[0])
        self._say_from("1")
        self.order = os.open("/proc/thread-self/fail-nth", os.O_RDWR)
        self.victim = os.open("/proc/thread-self/make-it-fail", os.O_RDWR)

    @staticmethod
    def _say_from(level):
        with open("/proc/sys/kernel/printk", "w", encoding="ascii") as file:
            file.write(level)

    @staticmethod
    def _set(point, name, value):
        with open(f"{DEBUG}/{point}/{name}", "w", encoding="ascii") as file:
            file.write(value)

    @staticmethod
    def _left():
        left = {}
        for point, what in POINTS.items():
            with open(f"{DEBUG}/{point}/times", encoding="ascii") as file:
                left[what] = int(file.read())
        return left

    def call(self, number, function, *arguments):
        """The result with the number-th request failing, 1 being the first, and what failed: a value of POINTS, or
        None when there was no such request."""
        text = b"%d" % number
        before = self._left()
        os.pwrite(self.order, text, 0)
        result = system_call(function, *arguments)
        if not self._take_back():
            return result, None
        after = self._left()
        (failed,) = (what for what, left in after.items() if left != before[what])
        return result, failed

    def call_without_pages(self, function, *arguments):
        """The result with no pages to be had, and how many requests for some there were."""
        # A fault of this process's own memory would ask again and again.
        result, failed = self._shortage("fail_page_alloc", LONGEST_SHORTAGE, 0, function, *arguments)
        if failed == LONGEST_SHORTAGE:
            raise SystemExit("the shortage of pages ended too early")
        return result, failed

    def each_copy(self, function, *arguments):
        """Like each(), with copies alone: how many objects and pages a call asks for depends on what the slab has left,
        so a copy may be the third request of one call and the fourth of the next."""
        number = 0
        failed = 1
        while failed:
            number += 1
            result, failed = self._shortage("fail_usercopy", 1, number, function, *arguments)
            yield number, result, "copies" if failed else None

    def _shortage(self, point, times, space, function, *arguments):
        """The result with requests of one kind failing from the space-th on, and how many of them did."""
        before = self._left()[POINTS[point]]
        for name, value in ("times", times), ("space", space), ("task-filter", "Y"), ("probability", 100):
            self._set(point, name, str(value))
        os.pwrite(self.victim, b"1", 0)
        result = system_call(function, *arguments)
        # This is a copy, too.
        spoilt = not self._spare()
        if spoilt:
            self._spare()
        failed = times - self._left()[POINTS[point]] - spoilt
        for name, value in ("probability", 0), ("space", 0), ("times", before):
            self._set(point, name, str(value))
        return result, failed

    def _spare(self):
        try:
            os.pwrite(self.victim, b"0", 0)
        except OSError as error:
            if error.errno != errno.EFAULT:
                raise
            return False
        return True

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
        """Calls with the first request failing, then the second, until there is none to fail: number, result, and what
        failed, which is None the last time."""
        number = 0
        failed = True
        while failed:
            number += 1
            result, failed = self.call(number, function, *arguments)
            yield number, result, failed


def told(failures):
    """A Counter of what failed, for people."""
    return ", ".join(f"{failures[what]} {what}" for what in POINTS.values())
