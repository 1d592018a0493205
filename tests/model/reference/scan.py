"""Texts and numbers as the kernel reads and prints them.

A text is a Python string with one character per byte (ISO 8859-1), so that any byte of a record survives in it. An IPv4
address is the number whose first octet is the most significant; a port is in host order.
"""

import re

WORD = 0xFFFFFFFF

# The scanner skips these blanks before a number, takes a sign only before a digit, and knows no '+'.
_NUMBER = "[ \t\n\v\f\r\xa0]*(-?[0-9]+)"
_INTERFACE = re.compile("wlan-" + _NUMBER + "-" + _NUMBER)
_ADDRESS = re.compile(r"\.".join([_NUMBER] * 4))


def text_of(field):
    """The text in a fixed field: up to its first NUL, or up to its end."""
    return bytes(field).partition(b"\0")[0].decode("latin-1")


def put_text(record, offset, size, text):
    """Writes a text and its NUL into a fixed field; a text that fills the field has no NUL, the rest stays."""
    data = (text.encode("latin-1") + b"\0")[:size]
    record[offset : offset + len(data)] = data


def signed(word):
    """A 32-bit word as "%d" prints it."""
    return word - (1 << 32) if word & 0x80000000 else word


def dotted(address):
    return f"{address >> 24}.{address >> 16 & 255}.{address >> 8 & 255}.{address & 255}"


def address_of(octets):
    first, second, third, fourth = octets
    return first << 24 | second << 16 | third << 8 | fourth


def mac_text(mac):
    return "%02X:%02X:%02X:%02X:%02X:%02X" % tuple(mac)


def scan_interface(name):
    """The two numbers of "wlan-%d-%d" as unsigned 32-bit words, or None when fewer are there."""
    found = _INTERFACE.match(name)
    if found is None:
        return None
    return int(found[1]) & WORD, int(found[2]) & WORD


def interface_index(name):
    """The combined index of an interface name, unsigned; numbers that are not there give one that is out of every range."""
    numbers = scan_interface(name)
    if numbers is None:
        return WORD
    radio, vap = numbers
    return (radio * 8 + vap - 9) & WORD


def owe_index(radio, vap):
    return ((radio - 1) * 3 + vap - 14) & WORD


def scan_address(text):
    """The four numbers of "%d.%d.%d.%d" as signed 32-bit numbers, or None when fewer are there."""
    found = _ADDRESS.match(text)
    if found is None:
        return None
    return [signed(int(number) & WORD) for number in found.groups()]


def in_aton(text):
    """The kernel's own arithmetic: no digit is checked and no octet is bounded."""
    address = 0
    position = 0
    for _ in range(4):
        value = 0
        while position < len(text) and text[position] not in ".\n":
            value = value * 10 + ord(text[position]) - ord("0")
            position += 1
        position += 1
        address = (address << 8 | value & WORD) & WORD
    return address
