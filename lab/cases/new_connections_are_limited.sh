# A client that opens connections without end is slowed down by firewall/limit-new-connections.nft before the module sees and
# records them, and its neighbour does not feel it.
#
#   client-1-1 eth0 -- wlan-1-1 \
#   client-1-2 eth0 -- wlan-1-2 -  br0 -- uplink0 -- upstream

make_topology 1-1 1-2
start_portal_web
give_address 1-1 61
give_address 1-2 62
load_module
cpctl interface set wlan-1-1 mode on
cpctl interface set wlan-1-2 mode on
# On a busy host an answer takes its time, and segments that wait for one are too many to be kept.
in_client 1-1 ip neigh replace "$GATEWAY_ADDRESS" lladdr "$GATEWAY_MAC" dev eth0

# open_connections CLIENT NUMBER FIRST_PORT  begins so many, each from a port of its own, and lets go of them before a first
# segment is sent again.
open_connections() {
	in_client "$1" python3 - "$2" "$3" <<'END'
import socket, sys
opened = []
for number in range(int(sys.argv[1])):
    connection = socket.socket()
    connection.setblocking(False)
    connection.bind(("", int(sys.argv[2]) + number))
    connection.connect_ex(("203.0.113.10", 80))
    opened.append(connection)
END
}

# How many of the client's connections the module has turned to the portal so far, each counted once.
redirected() { counted wlan-1-1 connection-recorded; }

portal_answers() {
	local answer
	answer=$(in_client "$1" curl -sS --max-time 20 http://203.0.113.20/)
	expect_contains "the portal answers client $1" "portal page on port" "$answer"
}

step "without the rules every connection reaches the module"
open_connections 1-1 600 20000
portal_answers 1-2
expect_equal "connections that were redirected" 600 "$(redirected)"

step "with them a client opens as many as a browser needs, and no more"
nft -f /payload/firewall/limit-new-connections.nft
open_connections 1-1 600 30000
portal_answers 1-2
seen=$(($(redirected) - 600))
((100 <= seen && seen <= 300)) || fail "with the rules $seen of 600 were redirected"
echo "$seen of 600 were redirected"

# first_segments NUMBER CHANGE...  600 frames that the module takes for a connection's first segment, as lib/frame_bytes.py
# changes them; sender and source address are this number's own.  How many of them it recorded.
first_segments() {
	local before
	before=$(redirected)
	PYTHONPATH=$LAB/lib in_client 1-1 python3 - "$@" <<'END'
import socket, sys
from frame_bytes import change_frame, good_frame
number, *changes = sys.argv[1:]
wire = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
wire.bind(("eth0", 0))
for port in range(600):
    frame = change_frame(good_frame("tcp/203.0.113.10/80"), f"client-port={port + 20000}")
    for change in (f"source=192.168.101.{number}", *changes):
        frame = change_frame(frame, change)
    wire.send(frame[:6] + bytes((2, 0, 0, 9, 9, int(number))) + frame[12:])
END
	sleep 1
	echo $(($(redirected) - before))
}

step "so is whatever else the module takes for a first segment"
number=0
for dress in flags=12 vlan=5 vlan=0 total=1400 version=6 "options=10 flags=12"; do
	nft delete table bridge captive_portal_guard
	number=$((number + 1))
	# shellcheck disable=SC2086
	expect_equal "recorded without the rules: $dress" 600 "$(first_segments "$number" $dress)"
	nft -f /payload/firewall/limit-new-connections.nft
	number=$((number + 1))
	# shellcheck disable=SC2086
	seen=$(first_segments "$number" $dress)
	((100 <= seen && seen <= 300)) || fail "with the rules $seen of 600 were recorded: $dress"
	echo "$dress: $seen of 600"
done

step "who is slower goes on"
sleep 10
portal_answers 1-1

step "the file can be loaded again, and taken away"
nft -f /payload/firewall/limit-new-connections.nft
portal_answers 1-1

step "when the set is full, nobody new opens a connection"
sed 's/size 16384/size 1/' /payload/firewall/limit-new-connections.nft | nft -f -
portal_answers 1-1
expect_failure in_client 1-2 curl -sS --max-time 5 http://203.0.113.20/
portal_answers 1-1
nft delete table bridge captive_portal_guard
portal_answers 1-1
