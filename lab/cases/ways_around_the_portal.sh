# What an access point's owner must know of, each thing first open and then shut:
# other rules' marks, hardware addresses, ARP and the bridge's memory of who is
# where, other wireless ports, a second address of the access point, a bridge of
# another name, log lines that a client can cause, who reads the proc file, and
# DNS answers without end.
#
# Time limit: 400 seconds, for emulated machines on a busy host.
#
#   client-1-1 eth0 -- wlan-1-1 \
#   client-1-2 eth0 -- wlan-1-2  br0 -- uplink0 -- upstream
#   client-lan0 eth0 ---- lan0  /

make_topology 1-1 1-2 lan0
give_address 1-1 61
give_address 1-2 62
give_address lan0 63
load_module
cpctl interface set wlan-1-1 mode on garden on
cpctl interface set wlan-1-2 mode on
own_mac=$(mac_of 1-1)

# Who answers says his address and port, and no more.
cat >"$CASE_DIR/answer.py" <<'PROGRAM'
import selectors, socket, sys
known = selectors.DefaultSelector()
for place in sys.argv[1:]:
    address, port = place.rsplit(":", 1)
    known.register(socket.create_server((address, int(port)), backlog=50), selectors.EVENT_READ, place)
print("listening", flush=True)
while True:
    for key, _ in known.select():
        connection = key.fileobj.accept()[0]
        connection.sendall(key.data.encode())
        connection.close()
PROGRAM
# answer PLACE ADDRESS:PORT...
answer() {
	local log="$CASE_DIR/answer-${2//:/-}"
	$1 python3 "$CASE_DIR/answer.py" "${@:2}" >"$log" &
	wait_until 60 "somebody listens at $2" grep -q listening "$log"
}
answer in_upstream 203.0.113.10:80
answer access_point "$AP_ADDRESS":{10081,10082}

# said_to CLIENT [ADDRESS PORT]  who answers a client's connection, if anybody does.
said_to() {
	local seconds=${patience:-$FETCH_SECONDS}
	in_client "$1" timeout "$seconds" bash -c 'exec 3<>"/dev/tcp/$0/$1" && cat <&3' "${2:-203.0.113.10}" "${3:-80}" \
		2>/dev/null || true
}
expect_portal() { expect_equal "who answers client 1-1" "$AP_ADDRESS:10081" "$(said_to 1-1)"; }
expect_real() { expect_equal "who answers client 1-1" 203.0.113.10:80 "$(said_to 1-1)"; }
expect_nobody() { expect_equal "who answers client $1" "" "$(patience=$SILENCE_SECONDS said_to "$@")"; }

# send_frame CLIENT WORD SOURCE_MAC [CHANGE...]  one of lib/frame_bytes.py.
send_frame() {
	PYTHONPATH=$LAB/lib in_client "$1" python3 - "${@:2}" <<'PROGRAM'
import socket, sys
from frame_bytes import change_frame, good_frame
word, mac, *changes = sys.argv[1:]
frame = good_frame(word)
for change in changes:
    frame = change_frame(frame, change)
wire = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
wire.bind(("eth0", 0))
wire.send(frame[:6] + bytes.fromhex(mac.replace(":", "")) + frame[12:])
PROGRAM
}

# mark_rule PRIORITY RULE
mark_rule() { nft "table bridge other { chain marks { type filter hook prerouting priority $1; iifname wlan-1-1 $2; }; }"; }
step "a rule that takes the mark off between the hooks opens the portal"
expect_portal
mark_rule -315 'meta mark set 0'
expect_real
nft delete table bridge other
step "one that sets a mark before them shuts it for who is logged in"
cpctl client add login "$own_mac" wlan-1-1
expect_real
mark_rule -330 'meta mark set 5201'
expect_equal "who answers client 1-1" "$AP_ADDRESS:10082" "$(said_to 1-1)"
nft delete table bridge other

# Nobody remembers who had which hardware address before: they would send to the old one for some seconds.
forget_neighbours() { ip neigh flush dev br0; in_upstream ip neigh flush dev eth0; }
use_mac() {
	in_client 1-1 ip link set eth0 address "$1"
	forget_neighbours
}
step "a hardware address is all that a login knows, on its own interface"
in_client 1-1 ip address flush dev eth0
give_address 1-1 71
expect_real
in_client 1-1 ip address flush dev eth0
give_address 1-1 61
use_mac 02:00:00:01:01:99
expect_portal
cpctl client add login "$(mac_of 1-2)" wlan-1-1
expect_equal "who answers client 1-2" "$AP_ADDRESS:10082" "$(said_to 1-2)"
use_mac "$own_mac"
expect_real
cpctl client flush portal all

step "the bridge believes who uses the gateway's hardware address, unless its place is fixed"
gateway_is_at() { bridge fdb show br br0 | grep -F "$GATEWAY_MAC dev $1 " >/dev/null; }
# The gateway's own next frame brings its place back, so it is claimed until somebody looks in time.
claimed() { send_frame 1-1 arp "$GATEWAY_MAC" && gateway_is_at wlan-1-1; }
wait_until 30 "the bridge looks for the gateway behind client 1-1" claimed
bridge fdb replace "$GATEWAY_MAC" dev uplink0 master static sticky
send_frame 1-1 arp "$GATEWAY_MAC"
# Not judged before the frame is through.
send_frame 1-1 arp 02:00:00:01:01:77
wait_until 10 "the bridge has learned from a later frame" sh -c 'bridge fdb show br br0 | grep -q "02:00:00:01:01:77 dev wlan-1-1 "'
expect_success gateway_is_at uplink0
expect_portal

step "clients of two ports reach each other, unless their ports are isolated"
finds_neighbour() { in_client "$1" arping -q -f -c 2 -w 2 -I eth0 "$2" >/dev/null; }
expect_success finds_neighbour 1-1 192.168.100.62
bridge link set dev wlan-1-1 isolated on
bridge link set dev wlan-1-2 isolated on
expect_failure finds_neighbour 1-1 192.168.100.62
expect_success finds_neighbour 1-1 "$GATEWAY_ADDRESS"
expect_portal

step "portal ports are guarded at the first address of br0 alone"
ip address add 192.168.100.2/24 dev br0
answer access_point 192.168.100.2:10081
expect_nobody lan0 "$AP_ADDRESS" 10081
expect_equal "who answers at the second address" 192.168.100.2:10081 "$(said_to lan0 192.168.100.2 10081)"

step "any client can fill the log with one line, unless the debug level is 0"
lines() { log_since_start | grep -cF 'Wrong type(0) and input' || true; }
send_frame 1-1 tcp/0.0.0.0/80 "$own_mac"
expect_log 'Wrong type(0) and input'
cpctl debug 0
before=$(lines)
send_frame 1-1 tcp/0.0.0.0/80 "$own_mac"
expect_portal
expect_equal "lines with debug level 0" "$before" "$(lines)"

step "the control device is root's; everybody reads which permitted names were asked for, unless that file is shut"
expect_equal "the device's mode and owner" "crw------- root" "$(stat -c '%A %U' /dev/CP_dev)"
nobody_reads() { setpriv --reuid 65534 --regid 65534 --clear-groups cat /proc/cp_dns_aRecord/summary; }
expect_success nobody_reads
chmod 0400 /proc/cp_dns_aRecord/summary
expect_failure nobody_reads
expect_success cat /proc/cp_dns_aRecord/summary

step "DNS answers for a client come as fast as somebody likes, unless they are limited"
answers_through() {
	local name=$1
	start_capture "$name" 1-1 eth0
	PYTHONPATH=$LAB/lib in_upstream python3 - <<'PROGRAM'
import socket
from frame_bytes import dns_answer
wire = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
wire.bind(("203.0.113.53", 53))
for number in range(300):
    wire.sendto(dns_answer(f"name{number}.example.test", ["203.0.113.99"]), ("192.168.100.61", 40000))
wire.sendto(b"the last one", ("192.168.100.61", 40001))
PROGRAM
	expect_captured "$name" "udp src port 53 or udp dst port 40001"
	stop_capture "$name"
	count_captured "$name" "udp src port 53 and udp dst port 40000"
}
in_upstream ip neigh replace 192.168.100.61 lladdr "$own_mac" dev eth0
expect_equal "answers without the rules" 300 "$(answers_through unlimited)"
nft -f /payload/firewall/limit-dns-answers.nft
seen=$(answers_through limited)
((100 <= seen && seen <= 200)) || fail "with the rules $seen of 300 answers came"
echo "$seen of 300 answers came with the rules"

step "a bridge br0 that has lost its address keeps it for the portal"
expect_portal
ip address flush dev br0
expect_nobody 1-1
ip address add "$AP_ADDRESS/24" dev br0
expect_portal
step "without a bridge br0 TCP passes"
ip link set br0 down
ip link set br0 name br1
ip link set br1 up
expect_real
ip link set br1 down
ip link set br1 name br0
ip link set br0 up
expect_portal
