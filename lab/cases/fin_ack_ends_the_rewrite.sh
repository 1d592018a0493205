# The access point's FIN+ACK is rewritten and ends the connection's entry: what
# the access point sends on that connection afterwards leaves as it is.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

make_topology 1-1
start_portal_web
give_address 1-1 61
load_module
cpctl interface set wlan-1-1 mode on
start_capture client 1-1 eth0
in_client 1-1 python3 - <<'END'
import socket, time
connection = socket.create_connection(("203.0.113.10", 80), timeout=30)
connection.sendall(b"GET / HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n")
answer = b""
while piece := connection.recv(4096):
    answer += piece
assert b"portal page on port 10081" in answer, answer
# The other end has closed; more data makes it speak once more.
try:
    for _ in range(5):
        connection.sendall(b"more")
        time.sleep(0.3)
except OSError:
    pass
END
fin="tcp[13] & 0x11 == 0x11"
expect_captured client "ether src $GATEWAY_MAC and src 203.0.113.10 and tcp src port 80 and $fin"
expect_captured client "src $AP_ADDRESS and tcp src port 10081"
stop_capture client

step "nothing before the FIN+ACK left unrewritten, nothing after it was rewritten"
order=$(captured client "ether dst $(mac_of 1-1) and tcp" | awk '
	/203\.0\.113\.10\.80 > / { print ended ? "rewritten after the end" : "rewritten" }
	/192\.168\.100\.1\.10081 > / { print ended ? "unrewritten" : "unrewritten before the end" }
	/203\.0\.113\.10\.80 > / && /Flags \[[A-Z]*F[A-Z]*\.\]/ { ended = 1 }' | uniq)
expect_equal "order of the access point's segments" $'rewritten\nunrewritten' "$order"
step "the next connection works"
expect_portal_page 1-1 http://203.0.113.10/next 10081
