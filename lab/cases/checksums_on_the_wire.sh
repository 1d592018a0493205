# Rewritten packets carry right checksums, whether their own were finished
# before or were left to be completed; and large pieces that the web service
# hands to the stack are rewritten whole.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

make_topology 1-1
start_portal_web
give_address 1-1 61
load_module
cpctl interface set wlan-1-1 mode on
wanted=$(sha256sum </run/lab-files/portal/big)

# offloads STATE: who computes the checksums and cuts large pieces, the kernel
# at once (off) or a device later (on).
offloads() {
	ethtool -K wlan-1-1 tx "$1" tso "$1" gso "$1" gro "$1" >/dev/null
	ethtool -K br0 tx "$1" tso "$1" gso "$1" >/dev/null
	in_client 1-1 ethtool -K eth0 tx "$1" tso "$1" gso "$1" gro "$1" >/dev/null
}

for state in off on; do
	step "offloads $state"
	offloads "$state"
	start_capture "client-$state" 1-1 eth0
	start_capture "bridge-$state" access-point br0
	expect_portal_page 1-1 http://203.0.113.10/page 10081
	got=$(fetch 1-1 http://203.0.113.10/big | sha256sum)
	expect_equal "sum of the portal's large page" "$wanted" "$got"
	stop_capture "client-$state"
	stop_capture "bridge-$state"
done

# Without offloads every checksum in the captures must be right; tcpdump says so.
for capture in client-off bridge-off; do
	sums=$(tcpdump -n -vv -r "$CASE_DIR/$capture.pcap" tcp 2>/dev/null)
	expect_contains "$capture" "(correct)" "$sums"
	expect_lacks "$capture" "incorrect" "$sums"
	expect_lacks "$capture" "bad cksum" "$sums"
done
# A slow connection is given pieces of two segments only.
step "large pieces were among them"
expect_captured client-on "src 203.0.113.10 and tcp src port 80 and greater 1600"
expect_not_captured client-off "src 203.0.113.10 and tcp src port 80 and greater 1600"
