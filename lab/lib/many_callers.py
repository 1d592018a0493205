"""Many processes call through one open control device at once; no answer is ever half of one state and half of another.

usage: many_callers.py ROUNDS

One writer of each table, readers beside it, and a process whose records change while the call runs.  What a writer stores
is such that a reader sees from one answer alone whether it is whole.  Answers to DNS questions, frames and readers of the
proc file are the case's business.
"""

import ctypes
import mmap
import os
import signal
import struct
import sys
import threading
import time

SET_GARDEN, GET_GARDEN, SET_CLIENTS, GET_CLIENTS, SET_DEBUG = 3, 4, 8, 9, 11
UPDATE_DEFAULT_RULE, UPDATE_RULE, GET_RULES, GET_DEFAULT_RULES = 1, 2, 4, 5
ADD_LOGIN, GET_LOGIN, FLUSH_PORTAL, SET_BEHAVIOR, GET_BEHAVIOR = 4, 8, 9, 10, 11
EBUSY, EINVAL = 16, 22
CLIENTS_PER_LIST = 30

libc = ctypes.CDLL(None, use_errno=True)
libc.ioctl.argtypes = [ctypes.c_int, ctypes.c_ulong, ctypes.c_void_p]


class Device:
    def __init__(self, file):
        self.file = file

    def call(self, command, record):
        result = libc.ioctl(self.file, command, record if isinstance(record, int) else ctypes.addressof(record))
        return -ctypes.get_errno() if result == -1 else result

    def exchange(self, command, record):
        buffer = ctypes.create_string_buffer(record, len(record))
        result = self.call(command, buffer)
        if result:
            raise SystemExit(f"command {command} gave {result}")
        return buffer.raw


def garden_record(command, row=0, names=()):
    return struct.pack("<IiIi", command, row, 1, len(names)) + b"".join(
        struct.pack("<III128s", 0, 0, 0, name) for name in names).ljust(24 * 140, b"\0")


def names_in(record):
    count, = struct.unpack_from("<i", record, 12)
    return [record[16 + 140 * i + 12:16 + 140 * i + 140].split(b"\0")[0] for i in range(count)]


def client_record(command, row, mac=bytes(6), behavior=0, status=0):
    return struct.pack("<III16s16s6s2x", command, behavior, status, row, b"", mac)


def client(number):
    return b"\2\0\0\x77" + struct.pack("!H", number)


# --- who writes, and who reads it ------------------------------------------------


def write_rules(device, round_number):
    name = b"generation-%d.example.org" % round_number
    device.exchange(SET_GARDEN, garden_record(UPDATE_RULE, 0, [name] * (24 if round_number % 5 else 0)))


def read_rules(device):
    names = names_in(device.exchange(GET_GARDEN, garden_record(GET_RULES, 0)))
    if len(names) not in (0, 24) or len(set(names)) > 1:
        raise SystemExit(f"rules of more than one writing: {names}")


def write_default_rules(device, round_number):
    device.exchange(SET_GARDEN, garden_record(UPDATE_DEFAULT_RULE, 0, [b"default-%d.example.org" % round_number] * 24))


def read_default_rules(device):
    names = names_in(device.exchange(GET_GARDEN, garden_record(GET_DEFAULT_RULES)))
    if names and (len(names) != 24 or len(set(names)) > 1):
        raise SystemExit(f"default rules of more than one writing: {names}")


def write_clients(device, round_number):
    for number in range(CLIENTS_PER_LIST):
        device.exchange(SET_CLIENTS, client_record(ADD_LOGIN, b"wlan-2-2", client(number)))
    device.exchange(SET_CLIENTS, client_record(FLUSH_PORTAL, b"wlan-2-2" if round_number % 2 else b"all"))


def read_clients(device):
    sent = struct.pack("<III16s16s", GET_LOGIN, 0, 0, b"wlan-2-2", b"").ljust(16592, b"\0")
    record = device.exchange(GET_CLIENTS, sent)
    count, = struct.unpack_from("<I", record, 44)
    listed = [record[48 + 16 * i + 8:48 + 16 * i + 14] for i in range(count)]
    if listed != [client(number) for number in range(count)] or count > CLIENTS_PER_LIST:
        raise SystemExit(f"a list that never was: {listed}")


def write_behavior(device, round_number):
    value = round_number % 1000 + 10
    device.exchange(SET_CLIENTS, client_record(SET_BEHAVIOR, b"wlan-3-3", behavior=value, status=value + 1000))


def read_behavior(device):
    sent = struct.pack("<III16s16s", GET_BEHAVIOR, 0, 1000, b"wlan-3-3", b"").ljust(16592, b"\0")
    _, behavior, status = struct.unpack_from("<III", device.exchange(GET_CLIENTS, sent))
    if (behavior, status) != (0, 0) and status != behavior + 1000:
        raise SystemExit(f"behavior {behavior} with status {status}")


def write_debug_level(device, round_number):
    device.call(SET_DEBUG, round_number % 4)
    time.sleep(0.001)


def change_records_under_way(device, round_number):
    """Another thread changes the number of rules while the call runs: it counts as one of the two, for test and copy."""
    record = ctypes.create_string_buffer(garden_record(UPDATE_RULE, 5, [b"changing.example.org"] * 24), 3376)
    done = threading.Event()

    def change():
        while not done.is_set():
            record[12] = 25
            record[12] = 24
            time.sleep(0)

    changer = threading.Thread(target=change)
    changer.start()
    try:
        for _ in range(10):
            result = device.call(SET_GARDEN, record)
            if result not in (0, -EINVAL):
                raise SystemExit(f"a record that changes gave {result}")
    finally:
        done.set()
        changer.join()
    names = names_in(device.exchange(GET_GARDEN, garden_record(GET_RULES, 5)))
    if names not in ([], [b"changing.example.org"] * 24):
        raise SystemExit(f"rules that nobody sent: {names}")


def open_in_vain(_, round_number):
    try:
        os.open("/dev/CP_dev", os.O_RDWR)
    except OSError as error:
        if error.errno == EBUSY:
            return
        raise
    raise SystemExit("a second open succeeded")


WRITERS = (write_rules, write_default_rules, write_clients, write_behavior, write_debug_level, change_records_under_way,
           open_in_vain)
READERS = (read_rules, read_default_rules, read_clients, read_behavior)


def main(rounds):
    device = Device(os.open("/dev/CP_dev", os.O_RDWR))
    stop = mmap.mmap(-1, 4096)

    def start(name, work):
        child = os.fork()
        if child:
            return child, name
        status = 1
        try:
            work()
            status = 0
        except BaseException as error:
            print(f"  WRONG {name}: {error!r}", flush=True)
        finally:
            os._exit(status)

    def write(work):
        for round_number in range(rounds):
            work(device, round_number)

    def read(work, number):
        count = 0
        while not stop[0]:
            work(device)
            count += 1
            stop[number] = 1
            time.sleep(0.001)
        print(f"    {work.__name__}: {count} times", flush=True)

    readers = [start(work.__name__, lambda: read(work, number)) for number, work in enumerate(READERS * 2, 1)]
    # A machine whose time stands while anybody runs may leave one of them out for long: all must have begun.
    while sum(stop[1:len(readers) + 1]) != len(readers):
        time.sleep(0.01)
    # One that is killed in the midst of its calls: the others go on.
    victim, _ = start("victim", lambda: write(lambda device, number: write_rules(device, number % 5 + 1)))
    writers = [start(work.__name__, lambda: write(work)) for work in WRITERS]
    time.sleep(0.05)
    os.kill(victim, signal.SIGKILL)
    os.waitpid(victim, 0)
    failed = [name for child, name in writers if os.waitpid(child, 0)[1]]
    stop[0] = 1
    failed += [name for child, name in readers if os.waitpid(child, 0)[1]]
    device.exchange(SET_GARDEN, garden_record(UPDATE_RULE, 0))
    device.exchange(SET_GARDEN, garden_record(UPDATE_DEFAULT_RULE, 0))
    device.exchange(SET_GARDEN, garden_record(UPDATE_RULE, 5))
    device.call(SET_DEBUG, 1)
    return f"these failed: {', '.join(failed)}" if failed else 0


sys.exit(main(int(sys.argv[1])))
