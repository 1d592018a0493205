# A logged-in client that visits its interface's logout address meets the
# logout page; everything else it reaches, and clients of other interfaces
# reach the address itself.
#
#   client-1-1 eth0 -- wlan-1-1 \
#                                br0 -- uplink0 -- upstream
#   client-1-2 eth0 -- wlan-1-2 /

make_topology 1-1 1-2
start_services
give_address 1-1 61
give_address 1-2 62
load_module
for interface in wlan-1-1 wlan-1-2; do cpctl interface set "$interface" mode on; done
cpctl client add login "$(mac_of 1-1)" wlan-1-1
cpctl client add auth "$(mac_of 1-2)" wlan-1-2

expect_real_page 1-1 http://203.0.113.40/before
cpctl interface set wlan-1-1 logout 203.0.113.40
start_capture client 1-1 eth0
step "logout page"
expect_portal_page 1-1 http://203.0.113.40/logout 82
expect_portal_page 1-1 http://login.example.org/logout 82
expect_real_page 1-1 http://www.example.net/
expect_real_page 1-2 http://203.0.113.40/not-its-logout-address
stop_capture client
expect_captured client "ether src $GATEWAY_MAC and src 203.0.113.40 and tcp src port 80"
expect_replies_rewritten client

step "any other port goes to the logout port, too"
start_capture bridge access-point br0
in_client 1-1 curl -q -s -o /dev/null --connect-timeout 2 http://203.0.113.40:8080/ || true
stop_capture bridge
expect_captured bridge "ether src $(mac_of 1-1) and dst $AP_ADDRESS and tcp dst port 82"

step "an authorised client's logout address"
cpctl interface set wlan-1-2 logout 203.0.113.40
expect_portal_page 1-2 http://203.0.113.40/logout 82

step "not logged in any more: the portal, not the logout page"
cpctl client del login "$(mac_of 1-1)" wlan-1-1
expect_portal_page 1-1 http://203.0.113.40/login 10081

step "no logout address"
cpctl client add login "$(mac_of 1-1)" wlan-1-1
cpctl interface set wlan-1-1 logout none
expect_real_page 1-1 http://203.0.113.40/after
