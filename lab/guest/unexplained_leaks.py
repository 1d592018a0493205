"""Of a kmemleak report on standard input, prints the objects that nothing explains.

At unload the module deliberately keeps what is left in its client MAC lists, and connections that never saw their end.
User Mode Linux reports no backtrace, so such an object is known by what is in it: a pointer and then a station's address
of the lab, or the address of the lab's station that a client's first packet was for.
"""

import re
import sys

LAB_STATIONS = bytes([0x02, 0x00, 0x00])


def kept_on_purpose(report):
    size = int(re.search(r"\(size (\d+)\)", report).group(1))
    content = bytes.fromhex("".join(re.findall(r"^    ((?:[0-9a-f]{2} ){1,16})", report, flags=re.M)))
    client_in_a_list = size == 16 and content[8:11] == LAB_STATIONS and content[14:16] == b"\0\0"
    connection = size == 64 and content[22:25] == LAB_STATIONS
    return client_in_a_list or connection


kept = 0
for report in re.split(r"^(?=unreferenced object )", sys.stdin.read(), flags=re.M):
    if not report.strip():
        continue
    if kept_on_purpose(report):
        kept += 1
    else:
        print(report, end="")
print(f"{kept} objects kept on purpose", file=sys.stderr)
