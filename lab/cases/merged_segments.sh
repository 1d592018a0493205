# Segments that arrive one by one and that receive offload puts together before
# the bridge sees them, as a list of buffers: redirected, passed and counted as
# one packet, they leave with right checksums and not a byte lost.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

make_topology 1-1
# Before 5.13 a cable says that it merges, and does not.
! ethtool -k wlan-1-1 | grep '^generic-receive-offload: on' >/dev/null ||
	skip "receive offload puts nothing together on this kernel's cables"
start_services
give_address 1-1 61
load_module
cpctl interface set wlan-1-1 mode on

# The client makes its segments and checksums itself, so what the port merges are packets of one segment each.
in_client 1-1 ethtool -K eth0 tx off tso off gso off >/dev/null
body=$CASE_DIR/body
head -c 400000 /run/lab-files/upstream/big >"$body"

for gro in "gro on" "gro on rx-gro-list on"; do
	name=${gro// /-}
	step "$gro"
	ethtool -K wlan-1-1 $gro >/dev/null
	start_capture "port-$name" access-point wlan-1-1
	start_capture "client-$name" 1-1 eth0

	expect_portal_page 1-1 http://203.0.113.10/page 10081 --data-binary "@$body"

	cpctl client add login "$(mac_of 1-1)" wlan-1-1
	expect_success fetch 1-1 http://203.0.113.10/upload/body -T "$body"
	expect_equal "sum of what went up" "$(sha256sum <"$body")" "$(sha256sum <"$UPLOADS/body")"
	rm -f "$UPLOADS/body"
	cpctl client del login "$(mac_of 1-1)" wlan-1-1

	stop_capture "port-$name"
	stop_capture "client-$name"
	# Otherwise this shows nothing.
	expect_captured "port-$name" "src 192.168.100.61 and dst 203.0.113.10 and tcp dst port 80 and greater 3000"
	expect_not_captured "client-$name" "src 192.168.100.61 and greater 3000"
	expect_replies_rewritten "client-$name"
done
