# Two hundred redirected connections at once, each to a server and a path of its
# own, each gets its own answer from the server that it asked.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

make_topology 1-1
start_portal_web
give_address 1-1 61
load_module
cpctl interface set wlan-1-1 mode on

# The connections are all open before the first request is sent. Each has a port of its own: an entry is known by the
# client's address and port alone, and a client's system may use one port towards two servers.
in_client 1-1 python3 - <<'END'
import socket
connections = []
for number in range(200):
    connection = socket.create_connection((f"203.0.113.{number + 1}", 80), timeout=60,
                                          source_address=("", 20000 + number))
    connection.settimeout(60)
    connections.append((number, connection))
for number, connection in connections:
    connection.sendall(f"GET /{number} HTTP/1.1\r\nHost: host{number}\r\nConnection: close\r\n\r\n".encode())
for number, connection in connections:
    answer = b""
    while piece := connection.recv(4096):
        answer += piece
    wanted = f"portal page on port 10081 for 192.168.100.61 asked for host{number}/{number}\n".encode()
    if not answer.endswith(b"\r\n\r\n" + wanted):
        raise SystemExit(f"connection {number} got {answer!r}")
    if connection.getpeername() != (f"203.0.113.{number + 1}", 80):
        raise SystemExit(f"connection {number} is to {connection.getpeername()}")
    connection.close()
print(f"{len(connections)} answers")
END
