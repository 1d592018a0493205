# Before login a client gets an address by DHCP and resolves names through the
# access point and through a server behind the gateway; nothing else of UDP
# passes. A mark that belongs to no portal changes nothing.
#
#   client-1-1 eth0 -- wlan-1-1 \
#                                br0 -- uplink0 -- upstream
#   client-1-2 eth0 -- wlan-1-2 /     (portal off on wlan-1-2)

make_topology 1-1 1-2
start_upstream_dns
start_access_point_dns
load_module
cpctl interface set wlan-1-1 mode on
start_capture uplink upstream eth0

# An echo on another port, to tell "dropped" from "nobody listens".
in_upstream python3 -c '
import socket
echo = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
echo.bind(("203.0.113.10", 12345))
while True:
    data, sender = echo.recvfrom(2048)
    echo.sendto(data, sender)' &
port=12345
wait_until 20 "the UDP echo listens" in_upstream sh -c "ss -Hlun 'sport = :12345' | grep -q ."

echo_answers() {
	[[ $(in_client "$1" python3 -c '
import socket
asker = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
asker.settimeout(2)
asker.sendto(b"hello", ("203.0.113.10", 12345))
print(asker.recv(100).decode())' 2>/dev/null) == hello ]]
}

for client in 1-1 1-2; do
	step "client $client gets an address and resolves names"
	expect_success get_address_by_dhcp "$client"
	expect_equal "name by the access point" 203.0.113.10 "$(resolve "$client" www.example.net)"
	expect_equal "name by a server upstream" 203.0.113.20 \
		"$(in_client "$client" dig +short @"$UPSTREAM_DNS" www.example.com)"
done

step "other UDP"
expect_failure echo_answers 1-1
expect_success echo_answers 1-2
cpctl interface set wlan-1-1 mode off
expect_success echo_answers 1-1
cpctl interface set wlan-1-1 mode on
expect_failure echo_answers 1-1

stop_capture uplink
expect_captured uplink "ether src $(mac_of 1-1) and udp dst port 53"
expect_equal "frames of the portal's client to the echo while the portal was off" 1 \
	"$(count_captured uplink "ether src $(mac_of 1-1) and udp dst port 12345")"
