"""Frames byte by byte: good ones, what hostile senders make of them, and what a redirect must make of them.

A frame is written in words, first what it is, then how it was changed:

    tcp/ADDRESS/PORT  udp/ADDRESS/PORT  dns/ADDRESS  answer/NAME/ADDRESS  dhcp  icmp/ADDRESS  ip/PROTOCOL/ADDRESS
    dear-answer/NAME/ADDRESS      the same behind records whose names all lead over the same hundred labels
    reply/PORT/CLIENT_PORT        a segment of the access point's own web service
    tcp-everywhere/ADDRESS/PORT   every 16-bit word behind the addresses reads as PORT
    ipv6[/PROTOCOL...]            extension headers and the last one, by number
    ipv6-like-tcp/ADDRESS/PORT  ipv6-like-udp/PORT/ADDRESS
                                  reads as that where an IPv4 header's fields would be
    arp[/ADDRESS]  type/ETHERTYPE[/ADDRESS/PORT]  llc  snap/ETHERTYPE   behind which lies IPv4 TCP, but for arp

    cut=BYTES        so much stays behind the Ethernet header
    ihl=WORDS        header length as claimed; the header itself stays
    options=WORDS    a true IPv4 header with so many words of options
    total=BYTES      IPv4 total length as claimed
    udp-length=BYTES UDP length as claimed
    offset=WORDS / more / fragment-of=BYTES   fragment fields; only so many bytes behind the header
    flags=HEX  data=BYTES  to=MAC  version=NUMBER  doff=WORDS
    vlan=ID[/ID...]  ethertype=ETHERTYPE, that of the outer tag if there is one
    client-port=PORT  source=ADDRESS  destination=ADDRESS
"""

import socket
import struct

CLIENT = "192.168.100.61"
CLIENT_PORT = 40000
ACCESS_POINT = "192.168.100.1"
ACCESS_POINT_MAC = bytes.fromhex("020000000001")
GATEWAY_MAC = bytes.fromhex("0200000000fe")
ETHERNET = 14
TCP, UDP, ICMP = 6, 17, 1
SYN = 0x02


def address(text):
    return socket.inet_aton(text)


def ones_sum(data):
    if len(data) % 2:
        data += b"\0"
    total = sum(struct.unpack(f"!{len(data) // 2}H", data))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return total


def checksum(data):
    return ~ones_sum(data) & 0xFFFF


def pseudo_header(source, destination, protocol, length):
    return source + destination + struct.pack("!BBH", 0, protocol, length)


def ethernet(kind, payload, destination=GATEWAY_MAC):
    """The source address is filled in when the frame gets its number."""
    return destination + bytes(6) + struct.pack("!H", kind) + payload


def ipv4(protocol, payload, destination, source=CLIENT, options=b"", fragment=0):
    words = 5 + len(options) // 4
    header = struct.pack("!BBHHHBBH", 0x40 | words, 0, 4 * words + len(payload), 0, fragment, 64, protocol, 0)
    return fresh_header_checksum(header + address(source) + address(destination) + options + payload)


def fresh_header_checksum(packet):
    """An IPv4 packet with its header checksum right, as far as it has a header."""
    size = 4 * (packet[0] & 15) if packet else 0
    if size < 12 or len(packet) < size:
        return packet
    header = packet[:10] + b"\0\0" + packet[12:size]
    return header[:10] + struct.pack("!H", checksum(header)) + packet[12:]


def tcp(source, destination, source_port, port, flags=SYN, data=b"", sequence=0x01020304):
    segment = struct.pack("!HHIIBBHHH", source_port, port, sequence, 0, 0x50, flags, 8192, 0, 0) + data
    total = checksum(pseudo_header(address(source), address(destination), TCP, len(segment)) + segment)
    return segment[:16] + struct.pack("!H", total) + segment[18:]


def udp(source, destination, source_port, port, data):
    datagram = struct.pack("!HHHH", source_port, port, 8 + len(data), 0) + data
    total = checksum(pseudo_header(address(source), address(destination), UDP, len(datagram)) + datagram) or 0xFFFF
    return datagram[:6] + struct.pack("!H", total) + datagram[8:]


def dns_name(name):
    return b"".join(bytes([len(label)]) + label.encode() for label in name.split(".")) + b"\0"


def dns_question(name):
    return struct.pack("!HHHHHH", 7, 0x0100, 1, 0, 0, 0) + dns_name(name) + struct.pack("!HH", 1, 1)


def dns_answer(name, addresses, padding=0):
    """An answer with a record for each address; behind them a text record of so many bytes, if asked for."""
    count = len(addresses) + bool(padding)
    message = struct.pack("!HHHHHH", 7, 0x8180, 1, count, 0, 0) + dns_name(name) + struct.pack("!HH", 1, 1)
    for one in addresses:
        message += struct.pack("!HHHIH", 0xC00C, 1, 1, 3600, 4) + address(one)
    if padding:
        message += struct.pack("!HHHIH", 0xC00C, 16, 1, 3600, padding) + bytes(padding)
    return message


def dear_answer(name, one):
    labels, records = 100, 60
    message = struct.pack("!HHHHHH", 7, 0x8180, 1, records + 2, 0, 0) + dns_name(name) + struct.pack("!HH", 1, 1)
    message += struct.pack("!HHHIH", 0xC00C, 16, 1, 3600, 2 * labels + 1)
    run = 0xC000 | len(message)
    message += b"\1a" * labels + b"\0"
    message += struct.pack("!HHHIH", run, 16, 1, 3600, 0) * records
    return message + struct.pack("!HHHIH", run, 1, 1, 3600, 4) + address(one)


def ipv6_chain(numbers):
    """Extension headers of eight bytes each, in the order of their numbers, the last of which is the payload's."""
    body = b"".join(bytes([following, 0, 1, 4, 0, 0, 0, 0]) for following in numbers[1:])
    body += tcp("0.0.0.0", "0.0.0.0", CLIENT_PORT, 80)
    return struct.pack("!IHBB", 0x60000000, len(body), numbers[0], 64) + bytes(15) + b"\1" + bytes(15) + b"\2" + body


def good_frame(word):
    kind, *of = word.split("/")
    if kind == "tcp":
        return ethernet(0x0800, ipv4(TCP, tcp(CLIENT, of[0], CLIENT_PORT, int(of[1])), of[0]))
    if kind == "tcp-everywhere":
        return ethernet(0x0800, ipv4(TCP, struct.pack("!H", int(of[1])) * 40, of[0]))
    if kind == "reply":
        segment = tcp(ACCESS_POINT, CLIENT, int(of[0]), int(of[1]), 0x10)
        return ethernet(0x0800, ipv4(TCP, segment, CLIENT, ACCESS_POINT))
    if kind == "udp":
        return ethernet(0x0800, ipv4(UDP, udp(CLIENT, of[0], CLIENT_PORT, int(of[1]), b"question"), of[0]))
    if kind == "dns":
        return ethernet(0x0800, ipv4(UDP, udp(CLIENT, of[0], CLIENT_PORT, 53, dns_question("www.example.net")), of[0]))
    if kind in ("answer", "dear-answer"):
        message = dns_answer(of[0], of[1:]) if kind == "answer" else dear_answer(*of)
        datagram = udp("203.0.113.53", CLIENT, 53, CLIENT_PORT, message)
        return ethernet(0x0800, ipv4(UDP, datagram, CLIENT, "203.0.113.53"))
    if kind == "dhcp":
        message = struct.pack("!BBBBI", 1, 1, 6, 0, 7) + bytes(228) + bytes.fromhex("63825363350101ff")
        datagram = udp("0.0.0.0", "255.255.255.255", 68, 67, message)
        return ethernet(0x0800, ipv4(UDP, datagram, "255.255.255.255", "0.0.0.0"))
    if kind == "icmp":
        echo = b"\x08\0" + struct.pack("!HHH", 0, 1, 1) + bytes(8)
        return ethernet(0x0800, ipv4(ICMP, echo[:2] + struct.pack("!H", checksum(echo)) + echo[4:], of[0]))
    if kind == "ip":
        return ethernet(0x0800, ipv4(int(of[0]), bytes(24), of[1]))
    if kind == "ipv6":
        return ethernet(0x86DD, ipv6_chain([int(number) for number in of] or [TCP]))
    if kind == "ipv6-like-tcp":
        # The words at the places of total length and protocol: with a header length of 0 the first is the "port".
        packet = struct.pack("!HHHBB", 0x6000, int(of[1]), 40, 0, 0) + bytes([0, TCP]) + bytes(6) + address(of[0])
        return ethernet(0x86DD, packet + bytes(60))
    if kind == "ipv6-like-udp":
        packet = struct.pack("!HHHBB", 0x6000, int(of[0]), 40, 0, 0) + bytes([0, UDP]) + bytes(6) + address(of[1])
        return ethernet(0x86DD, packet + bytes(60))
    if kind == "arp":
        sender = address(of[0] if of else CLIENT)
        body = struct.pack("!HHBBH", 1, 0x0800, 6, 4, 1) + bytes(6) + sender + bytes(6) + address("192.168.100.9")
        return ethernet(0x0806, body)
    if kind == "type":
        to, port = of[1:] or ("203.0.113.10", 80)
        return ethernet(int(of[0], 16), ipv4(TCP, tcp(CLIENT, to, CLIENT_PORT, int(port)), to))
    if kind in ("llc", "snap"):
        inner = ipv4(TCP, tcp(CLIENT, "203.0.113.10", CLIENT_PORT, 80), "203.0.113.10")
        head = b"\x42\x42\x03" if kind == "llc" else b"\xaa\xaa\x03\0\0\0" + struct.pack("!H", int(of[0], 16))
        return ethernet(len(head + inner), head + inner)
    raise ValueError(f"what frame is {word}?")


def with_new_payload_sum(frame):
    """The checksum of an IPv4 TCP frame's segment made right again."""
    start = ETHERNET + 4 * (frame[ETHERNET] & 15)
    segment = frame[start:start + 16] + b"\0\0" + frame[start + 18:]
    total = checksum(pseudo_header(frame[26:30], frame[30:34], TCP, len(segment)) + segment)
    return frame[:start] + segment[:16] + struct.pack("!H", total) + segment[18:]


def change_frame(frame, word):
    name, _, value = word.partition("=")
    head, packet = frame[:ETHERNET], frame[ETHERNET:]
    if name == "cut":
        return frame[:ETHERNET + int(value)]
    if name == "ihl":
        return head + bytes([packet[0] & 0xF0 | int(value)]) + packet[1:]
    if name == "version":
        return head + bytes([int(value) << 4 | packet[0] & 15]) + packet[1:]
    if name == "options":
        size = 4 * (packet[0] & 15) + 4 * int(value)
        total = struct.pack("!H", struct.unpack_from("!H", packet, 2)[0] + 4 * int(value))
        longer = bytes([0x40 | size // 4]) + packet[1:2] + total + packet[4:20] + b"\1" * (4 * int(value)) + packet[20:]
        return head + fresh_header_checksum(longer)
    if name == "total":
        return head + fresh_header_checksum(packet[:2] + struct.pack("!H", int(value)) + packet[4:])
    if name == "udp-length":
        return head + packet[:24] + struct.pack("!H", int(value)) + packet[26:]
    if name in ("offset", "more", "fragment-of"):
        field, = struct.unpack_from("!H", packet, 6)
        if name == "fragment-of":
            packet = packet[:2] + struct.pack("!H", 20 + int(value)) + packet[4:20 + int(value)]
        else:
            field |= 0x2000 if name == "more" else int(value)
        return head + fresh_header_checksum(packet[:6] + struct.pack("!H", field) + packet[8:])
    if name == "flags":
        return with_new_payload_sum(frame[:47] + bytes([int(value, 16)]) + frame[48:])
    if name == "doff":
        return with_new_payload_sum(frame[:46] + bytes([int(value) << 4]) + frame[47:])
    if name == "data":
        longer = packet[:2] + struct.pack("!H", len(packet) + int(value)) + packet[4:]
        return with_new_payload_sum(head + fresh_header_checksum(longer) + bytes(i % 251 for i in range(int(value))))
    if name == "client-port":
        return with_new_payload_sum(frame[:34] + struct.pack("!H", int(value)) + frame[36:])
    if name in ("source", "destination"):
        at = 12 if name == "source" else 16
        moved = head + fresh_header_checksum(packet[:at] + address(value) + packet[at + 4:])
        if packet[9] == UDP:
            # No checksum.
            return moved[:40] + b"\0\0" + moved[42:]
        return with_new_payload_sum(moved) if packet[9] == TCP else moved
    if name == "to":
        return bytes.fromhex(value.replace(":", "")) + frame[6:]
    if name == "vlan":
        tags = b"".join(struct.pack("!HH", 0x8100, int(tag)) for tag in value.split("/"))
        return frame[:12] + tags + frame[12:]
    if name == "ethertype":
        return frame[:12] + struct.pack("!H", int(value, 16)) + frame[14:]
    raise ValueError(f"what change is {word}?")


# --- what a rewrite must give -------------------------------------------------


def replaced(total, old, new):
    """A checksum field after a part of what it covers changed, as RFC 1624 has it."""
    parts = [~total & 0xFFFF] + [~word & 0xFFFF for word in struct.unpack(f"!{len(old) // 2}H", old)]
    return checksum(b"".join(struct.pack("!H", part) for part in parts) + new)


def rewritten(frame, address_at, address_to, port_at, port_to, mac_at, mac_to):
    """IPv4 TCP with one end changed: its MAC address, address and port, and both checksums."""
    size = 4 * (frame[ETHERNET] & 15)
    result = bytearray(frame)
    transport = ETHERNET + size
    total, = struct.unpack_from("!H", frame, transport + 16)
    for place, new in ((ETHERNET + address_at, address(address_to)), (transport + port_at, struct.pack("!H", port_to))):
        total = replaced(total, bytes(frame[place:place + len(new)]), new)
        result[place:place + len(new)] = new
    # The fields may overlap when the header length lies; the checksum is written where the header says it is.
    struct.pack_into("!H", result, transport + 16, total)
    result[mac_at:mac_at + 6] = mac_to
    return bytes(result[:ETHERNET]) + fresh_header_checksum(bytes(result[ETHERNET:]))


def redirected(frame, port):
    return rewritten(frame, 16, ACCESS_POINT, 2, port, 0, ACCESS_POINT_MAC)


def undone(frame, server, port, server_mac):
    """A reply as the client must see it: from the server that it asked."""
    return rewritten(frame, 12, server, 0, port, 6, server_mac)


def has_right_sums(frame):
    """True for a whole IPv4 TCP frame with both of its checksums right."""
    size = 4 * (frame[ETHERNET] & 15)
    header, segment = frame[ETHERNET:ETHERNET + size], frame[ETHERNET + size:]
    pseudo = pseudo_header(frame[26:30], frame[30:34], TCP, len(segment))
    return ones_sum(header) == 0xFFFF and ones_sum(pseudo + segment) == 0xFFFF
