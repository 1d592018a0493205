# A redirect changes one packet, not the copies that others hold of it: who
# listens on the bridge port holds the frame as the client sent it, whenever it
# is read; a capture on the bridge shows it as it was rewritten; a reply's
# rewrite does not show in a capture on the bridge, which holds the same data.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

make_topology 1-1
start_portal_web
give_address 1-1 61
load_module
cpctl interface set wlan-1-1 mode on

held=$CASE_DIR/held-on-port
python3 "$LAB/lib/hold_frames.py" wlan-1-1 "$held" &
holder=$!
wait_until 20 "the port's frames are held" grep -qs ready "$held"
start_capture bridge access-point br0
start_capture client 1-1 eth0
expect_portal_page 1-1 http://203.0.113.10/page 10081
kill "$holder"
wait "$holder"
for capture in bridge client; do stop_capture "$capture"; done

mac=$(mac_of 1-1)
step "the request, on the port before the hooks and on the bridge after them"
# A reset of what left unrewritten after the end is the client's own, and as it sent it (0x04, 0x14).
frames=$(grep -vE 'ready| 0x[01]4$' "$held" | cut -d' ' -f1-3 | sort | uniq)
expect_equal "frames as the port's listener holds them" "$GATEWAY_MAC 203.0.113.10 80" "$frames"
expect_captured bridge "ether src $mac and ether dst $AP_MAC and dst $AP_ADDRESS and tcp dst port 10081"
expect_not_captured bridge "ether src $mac and dst 203.0.113.10 and tcp"

step "the reply, on the bridge before the hook and on the wire after it"
expect_captured bridge "src $AP_ADDRESS and tcp src port 10081 and dst 192.168.100.61"
expect_not_captured bridge "src 203.0.113.10 and tcp"
expect_captured client "ether src $GATEWAY_MAC and src 203.0.113.10 and tcp src port 80"
expect_replies_rewritten client
