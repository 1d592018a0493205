# A client's first web request, the main road: the page of the portal comes,
# and the client sees it come from the server that it asked: address, port and
# hardware address. Nothing of it reaches the uplink.
#
#   client-1-1 eth0 -- wlan-1-1 \
#   client-2-3 eth0 -- wlan-2-3  br0 -- uplink0 -- upstream
#   client-1-2 eth0 -- wlan-1-2 /     (portal off on wlan-1-2)

make_topology 1-1 2-3 1-2
start_services
give_address 1-1 61
give_address 2-3 62
give_address 1-2 63
load_module
expect_real_page 1-1 http://www.example.net/before

cpctl interface set wlan-1-1 mode on
cpctl interface set wlan-2-3 mode on
start_capture client 1-1 eth0
start_capture uplink upstream eth0

step "each interface has its own port"
expect_portal_page 1-1 http://www.example.net/first?x=1 10081
expect_portal_page 1-1 http://203.0.113.20/second 10081
expect_portal_page 2-3 http://www.example.net/third 20083
expect_real_page 1-2 http://www.example.net/fourth

step "other TCP ports are dropped"
expect_no_connection 1-1 http://203.0.113.10:8080/

stop_capture client
stop_capture uplink
step "what the client saw"
mac=$(mac_of 1-1)
expect_captured client "ether src $mac and ether dst $GATEWAY_MAC and dst 203.0.113.10 and tcp dst port 80"
expect_captured client "ether src $GATEWAY_MAC and ether dst $mac and src 203.0.113.10 and tcp src port 80"
expect_captured client "ether src $GATEWAY_MAC and src 203.0.113.20 and tcp src port 80"
expect_replies_rewritten client
expect_not_captured client "ether src $AP_MAC and $OF_A_REPLY"
step "what the uplink saw"
expect_not_captured uplink "ether src $mac and tcp"
expect_not_captured uplink "ether src $(mac_of 2-3) and tcp"
expect_captured uplink "ether src $(mac_of 1-2) and dst 203.0.113.10 and tcp dst port 80"

step "off again"
cpctl interface set wlan-1-1 mode off
expect_real_page 1-1 http://www.example.net/after
