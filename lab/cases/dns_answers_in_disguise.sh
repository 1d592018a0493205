# The module reads a DNS answer by its bytes, whatever its EtherType and the lengths in its IPv4 header. Answers that a wireless
# client forges are kept from it by firewall/before-login.nft, and limited by firewall/limit-dns-answers.nft, in every disguise.
#
#   client-1-1 eth0 -- wlan-1-1 \
#   client-1-2 eth0 -- wlan-1-2 -  br0 -- uplink0 -- upstream
#
# Time limit: 360 seconds, for emulated machines on a busy host.

make_topology 1-1 1-2
load_module
cpctl interface set wlan-1-1 mode on
cpctl interface set wlan-1-2 mode on

cached() { sed -n 's/^module .* cached_addresses=\([0-9]*\).*/\1/p' /proc/captive_portal/status; }

# forge NUMBER CHANGE...  as many answers from client 1-1 to client 1-2, each with an address of its own.
forge() {
	PYTHONPATH=$LAB/lib in_client 1-1 python3 - "$(mac_of 1-1)" "$(mac_of 1-2)" "$first_address" "$@" <<'PROGRAM'
import socket, sys
from frame_bytes import change_frame, good_frame
mac, to, first, number, *changes = sys.argv[1:]
wire = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
wire.bind(("eth0", 0))
for address in range(int(first), int(first) + int(number)):
    frame = good_frame(f"answer/www.example.com/203.0.{address // 256}.{address % 256}")
    for change in (f"to={to}", *changes):
        frame = change_frame(frame, change)
    wire.send(frame[:6] + bytes.fromhex(mac.replace(":", "")) + frame[12:])
PROGRAM
	first_address=$((first_address + $1))
	sleep 1
}
first_address=1

# stored NUMBER CHANGE...  forge, and say how many addresses came into the cache.
stored() {
	local before
	before=$(cached)
	forge "$@"
	came=$(($(cached) - before))
}

# expect_read_and_dropped DISGUISE...  without the rules it is read, with them it is not.
expect_read_and_dropped() {
	local disguise
	for disguise; do
		stored 1 "$disguise"
		expect_equal "addresses that were stored, without the rules: $disguise" 1 "$came"
	done
	nft -f /payload/firewall/before-login.nft
	for disguise; do
		stored 1 "$disguise"
		expect_equal "addresses that were stored, with the rules: $disguise" 0 "$came"
	done
	nft delete table bridge captive_portal_before_login
}

step "from a client that is not logged in"
expect_read_and_dropped ethertype=0800 ethertype=888e ethertype=88c7 ethertype=0806 total=1400 vlan=5

step "from one that is"
cpctl client add login "$(mac_of 1-1)" wlan-1-1
expect_read_and_dropped ethertype=0800 ethertype=888e ethertype=86dd total=1400 vlan=5

step "the limit counts them too"
for disguise in ethertype=0800 ethertype=888e ethertype=86dd total=1400 vlan=5; do
	nft -f /payload/firewall/limit-dns-answers.nft
	stored 300 "$disguise"
	((100 <= came && came <= 200)) || fail "with the limit $came of 300 answers were stored: $disguise"
	echo "$disguise: $came of 300"
	nft delete table bridge captive_portal_answers
done
