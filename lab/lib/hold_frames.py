"""Holds on to the frames of a device as the kernel queued them, and reads them only at the end.

A packet socket without a ring shares the frames' data with the network stack until it is read, so a change that
somebody made to a frame of his own shows here when he did not make it his own before.

usage: hold_frames.py DEVICE FILE; on SIGTERM it writes a line per IPv4 TCP frame:
destination-mac destination-address destination-port flags
"""

import signal
import socket
import struct
import sys

ETH_P_ALL = 3


def tcp_line(frame):
    if len(frame) < 54 or frame[12:14] != b"\x08\x00" or frame[23] != 6:
        return None
    tcp = 14 + 4 * (frame[14] & 15)
    port, = struct.unpack_from("!H", frame, tcp + 2)
    return f"{frame[:6].hex(':')} {socket.inet_ntoa(frame[30:34])} {port} {frame[tcp + 13]:#04x}"


def main(device, name):
    frames = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
    frames.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 8 << 20)
    frames.bind((device, 0))
    signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGTERM])
    with open(name, "w") as lines:
        lines.write("ready\n")
    signal.sigwait([signal.SIGTERM])
    frames.setblocking(False)
    with open(name, "a") as lines:
        while True:
            try:
                frame, sender = frames.recvfrom(65536)
            except BlockingIOError:
                break
            line = tcp_line(frame)
            if line and sender[2] != socket.PACKET_OUTGOING:
                lines.write(line + "\n")


main(*sys.argv[1:])
