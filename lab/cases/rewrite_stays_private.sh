# A redirect changes one packet, not the copies that others hold of it: a
# capture on the bridge port sees the frame as the client sent it, and a capture
# on the bridge as it was rewritten; a reply's rewrite does not show in a capture
# on the bridge, which holds the same data.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

make_topology 1-1
start_portal_web
give_address 1-1 61
load_module
cpctl interface set wlan-1-1 mode on
start_capture port access-point wlan-1-1
start_capture bridge access-point br0
start_capture client 1-1 eth0
expect_portal_page 1-1 http://203.0.113.10/page 10081
for capture in port bridge client; do stop_capture "$capture"; done

mac=$(mac_of 1-1)
step "the request, on the port before the hooks and on the bridge after them"
expect_captured port "ether src $mac and ether dst $GATEWAY_MAC and dst 203.0.113.10 and tcp dst port 80"
expect_not_captured port "ether src $mac and tcp dst port 10081"
expect_captured bridge "ether src $mac and ether dst $AP_MAC and dst $AP_ADDRESS and tcp dst port 10081"
expect_not_captured bridge "ether src $mac and dst 203.0.113.10 and tcp"

step "the reply, on the bridge before the hook and on the wire after it"
expect_captured bridge "src $AP_ADDRESS and tcp src port 10081 and dst 192.168.100.61"
expect_not_captured bridge "src 203.0.113.10 and tcp"
expect_captured client "ether src $GATEWAY_MAC and src 203.0.113.10 and tcp src port 80"
expect_not_captured client "src $AP_ADDRESS and tcp"
