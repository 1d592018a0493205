# What cpctl explain says of a frame is what the module then does with it:
# verdict, bytes and counts, in one state after the other. To explain sends
# nothing, counts nothing, and needs neither the device nor the listing.
#
#   client-1-1 eth0 -- wlan-1-1 \
#                                br0 -- uplink0 -- upstream
#   client-1-2 eth0 -- wlan-1-2 /
#
# Time limit: 360 seconds, for emulated machines on a busy host.

explained() { expect_success python3 -S "$LAB/lib/explained_frames.py" "$1"; }

make_frame_bench 1-1 1-2
load_module

frames=$CASE_DIR/frames
cat >"$frames" <<-END
	tcp 192.168.100.61 203.0.113.10 port 80 sport 40001
	tcp 192.168.100.61 203.0.113.10 port 443 sport 40002
	tcp 192.168.100.61 198.51.100.10 port 443 sport 40003
	tcp 192.168.100.61 203.0.113.10 port 22 sport 40004
	tcp 192.168.100.61 2.2.2.2 port 80 sport 40005
	tcp 192.168.100.61 192.0.2.1 port 80 sport 40006
	tcp 192.168.100.61 $AP_ADDRESS port 80 sport 40007 to $AP_MAC
	tcp 192.168.100.61 $AP_ADDRESS port 20083 sport 40008 to $AP_MAC
	udp 192.168.100.61 203.0.113.53 port 53
	udp 192.168.100.61 203.0.113.10 port 443
	icmp 192.168.100.61 203.0.113.10
	ip 192.168.100.61 203.0.113.10 proto 47
	dhcp
	arp
	ipv6
END
# Web requests, and what the access point's page answers to them. Another client port each time: a connection that is
# recorded is not recorded again.
port=41000
web_requests() {
	local server
	for server in "203.0.113.10 port 80" "2.2.2.2 port 443"; do
		echo "tcp 192.168.100.61 $server sport $((port++)) then reply then reply ack then reply fin-ack then reply ack"
	done >"$CASE_DIR/web_requests"
}
in_state() {
	step "$*"
	# Connections of the state before would be recorded no more.
	unload_module
	load_module
	cpctl "${@}"
	cpctl interface set wlan-1-2 mode on
}

step "without a portal"
explained "$frames"

in_state interface set wlan-1-1 mode on
explained "$frames"
web_requests
explained "$CASE_DIR/web_requests"

in_state garden replace wlan-1-1 on 198.51.100.0/24 '*.example.com'
cpctl interface set wlan-1-1 mode on
explained "$frames"
step "an address is cached"
said=$(cpctl explain dev wlan-1-1 from "$(mac_of 1-1)" tcp 192.168.100.61 203.0.113.20 port 80)
expect_contains "while the cache is empty" "203.0.113.20, which is not cached" "$said"
expect_success python3 -S "$LAB/lib/explained_frames.py" answer www.example.com 203.0.113.20
said=$(cpctl explain dev wlan-1-1 from "$(mac_of 1-1)" tcp 192.168.100.61 203.0.113.20 port 80)
expect_contains "then" "203.0.113.20 is cached as www.example.com, for a name that it permits" "$said"
echo "tcp 192.168.100.61 203.0.113.20 port 80 sport 40009" >"$CASE_DIR/cached"
explained "$CASE_DIR/cached"
expect_contains "what was not listed yet" "203.0.113.20" "$(cat /proc/cp_dns_aRecord/summary)"

in_state interface set wlan-1-1 mode internet-passes
explained "$frames"

in_state interface set wlan-1-1 mode drop-tcp block-https redirect
explained "$frames"

in_state interface set wlan-1-1 mode on disconnection pass-dhcp disconnected
explained "$frames"

in_state interface set wlan-1-1 mode on logout 192.0.2.1
cpctl client add login "$(mac_of 1-1)" wlan-1-1
explained "$frames"

in_state mirel mode on
cpctl client add mirel-black "$(mac_of 1-1)"
explained "$frames"
web_requests
explained "$CASE_DIR/web_requests"

step "the control device is somebody else's"
exec {device}<>/dev/CP_dev
said=$(cpctl --wait 0 explain dev wlan-1-1 from "$(mac_of 1-1)" icmp 192.168.100.61 203.0.113.10)
expect_contains "the verdict" "verdict: dropped: is dropped by the portal check" "$said"
exec {device}>&-
