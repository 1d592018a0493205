# What passes while the controller is away: behaviour 1 everything, behaviour 2
# DHCP alone, any other nothing, which is said in the log. It holds for clients
# in no table, and only while the status says so.
#
#   client-1-1 eth0 --.
#                      wlan-1-1 -- br0 -- uplink0 -- upstream
#   client-second -----'

make_topology 1-1
add_client_behind 1-1 second
start_services
give_address 1-1 61
give_address second 62
load_module
cpctl interface set wlan-1-1 mode on
cpctl client add login "$(mac_of second)" wlan-1-1
log_line="Unknow OVRA disconnection behavior, return"

step "connected: the portal decides"
cpctl interface set wlan-1-1 disconnection pass-all connected
expect_portal_page 1-1 http://203.0.113.10/ 10081

step "behaviour 1"
cpctl interface set wlan-1-1 disconnection pass-all disconnected
expect_real_page 1-1 http://203.0.113.10/
expect_ping 1-1 203.0.113.10

step "behaviour 2"
cpctl interface set wlan-1-1 disconnection pass-dhcp disconnected
expect_no_connection 1-1 http://203.0.113.10/
expect_no_ping 1-1 "$AP_ADDRESS"
expect_equal "DNS" "" "$(in_client 1-1 dig +short +tries=1 +time=1 www.example.net 2>/dev/null | grep -v '^;' || true)"
expect_success get_address_by_dhcp 1-1
expect_real_page second http://203.0.113.10/
expect_no_log "$log_line"

step "another behaviour"
cpctl interface set wlan-1-1 disconnection 3 disconnected
expect_no_connection 1-1 http://203.0.113.10/
expect_failure has_no_dhcp second
expect_success has_no_dhcp 1-1
expect_log "[gatekeeper]ebt_gate_keeper: $log_line"
expect_real_page second http://203.0.113.10/

step "connected again"
cpctl interface set wlan-1-1 disconnection 3 connected
expect_success get_address_by_dhcp 1-1
expect_portal_page 1-1 http://203.0.113.10/ 10081
