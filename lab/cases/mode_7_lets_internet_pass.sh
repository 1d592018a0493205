# Mode 7: internet destinations, the gateway and ping of the access point pass;
# web requests to private networks meet the mode's own pages.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream (10.9.8.7 too)

make_topology 1-1
in_upstream ip address add 10.9.8.7/32 dev servers
start_services
give_address 1-1 61
load_module

step "mode on"
cpctl interface set wlan-1-1 mode on
expect_portal_page 1-1 http://203.0.113.10/ 10081
expect_no_ping 1-1 "$AP_ADDRESS"

step "mode 7"
cpctl interface set wlan-1-1 mode internet-passes
expect_real_page 1-1 http://203.0.113.10/internet
expect_real_page 1-1 https://203.0.113.10/internet
expect_ping 1-1 203.0.113.10
expect_ping 1-1 "$AP_ADDRESS"
expect_portal_page 1-1 http://10.9.8.7/private 90
expect_portal_page 1-1 https://10.9.8.7/private 91
expect_no_ping 1-1 10.9.8.7
expect_no_connection 1-1 http://10.9.8.7:8080/

step "the gateway"
expect_portal_page 1-1 "http://$GATEWAY_ADDRESS/" 90
expect_no_ping 1-1 "$GATEWAY_ADDRESS"
cpctl gateway set "$GATEWAY_ADDRESS"
expect_real_page 1-1 "http://$GATEWAY_ADDRESS/"
expect_ping 1-1 "$GATEWAY_ADDRESS"

step "login"
cpctl client add login "$(mac_of 1-1)" wlan-1-1
expect_real_page 1-1 http://10.9.8.7/admitted
