# A flow table that has a wireless port among its devices carries a connection
# past the bridge, and so past the portal, after its client was logged out. One
# that has the bridge does not.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 = access point = uplink0 -- upstream

for part in nft_flow_offload nf_flow_table_inet; do
	modprobe "$part" 2>/dev/null || skip "this kernel has no $part"
done
make_topology 1-1
give_address 1-1 61
load_module
cpctl interface set wlan-1-1 mode on

step "the access point routes"
ip link set uplink0 nomaster
ip address add 192.168.200.1/24 dev uplink0
in_upstream ip address del "$GATEWAY_ADDRESS/24" dev eth0
in_upstream ip address add 192.168.200.254/24 dev eth0
in_upstream ip route add 192.168.100.0/24 via 192.168.200.1
ip route replace default via 192.168.200.254
in_client 1-1 ip route replace default via "$AP_ADDRESS"
echo 1 >/proc/sys/net/ipv4/ip_forward

in_upstream python3 -c '
import socket, threading
def echo(connection):
    while data := connection.recv(100):
        connection.sendall(data)
listener = socket.create_server(("203.0.113.10", 7000))
while True:
    threading.Thread(target=echo, args=[listener.accept()[0]]).start()' &
port=7000
wait_until 150 "the echo listens" listening in_upstream

# talk NAME  holds a connection and writes how often it was answered, ten times a second at most, to a file.
talk() {
	: >"$CASE_DIR/$1"
	# Without a shell in between, so that it can be killed.
	ip netns exec client-1-1 python3 -c '
import socket, sys, time
wire, count = socket.create_connection(("203.0.113.10", 7000)), 0
while True:
    wire.sendall(b".")
    count += len(wire.recv(1))
    print(count, flush=True)
    time.sleep(0.1)' >"$CASE_DIR/$1" &
	talker=$!
	wait_until 150 "the connection $1 is answered" test -s "$CASE_DIR/$1"
}
answers() { wc -l <"$CASE_DIR/$1"; }
has_answers() { (($(answers "$1") >= $2)); }
# expect_goes_on NAME / expect_stands_still NAME
expect_goes_on() { wait_until 150 "the connection $1 goes on" has_answers "$1" $(($(answers "$1") + 5)); }
expect_stands_still() {
	# What is on its way may still come.
	sleep 0.5
	local before
	before=$(answers "$1")
	sleep 1.5
	expect_equal "answers on the connection $1" "$before" "$(answers "$1")"
}
is_offloaded() { grep -F 'dport=7000' /proc/net/nf_conntrack | grep -F '[OFFLOAD]' >/dev/null; }

# offload DEVICE  a flow table for what is routed between it and the uplink.
offload() {
	nft "table inet routed {
		flowtable fast { hook ingress priority 0; devices = { $1, uplink0 }; }
		chain forward { type filter hook forward priority 0; ip protocol tcp flow add @fast; }
	}"
}

for device in br0 wlan-1-1; do
	step "a flow table with $device"
	cpctl client add login "$(mac_of 1-1)" wlan-1-1
	offload "$device"
	talk "$device"
	wait_until 150 "the connection is in the flow table" is_offloaded
	expect_goes_on "$device"
	cpctl client del login "$(mac_of 1-1)" wlan-1-1
	case $device in
	br0)
		expect_stands_still "$device"
		# It was the portal that held it up.
		cpctl client add login "$(mac_of 1-1)" wlan-1-1
		expect_goes_on "$device"
		cpctl client del login "$(mac_of 1-1)" wlan-1-1
		;;
	# Nobody would have it so; the case says so if that ever changes.
	wlan-1-1) expect_goes_on "$device" ;;
	esac
	nft delete table inet routed
	expect_stands_still "$device"
	kill "$talker"
done
expect_no_ping 1-1 203.0.113.10
