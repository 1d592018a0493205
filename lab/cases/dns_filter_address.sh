# While the DNS filter is on, TCP of wireless clients to 4.4.4.4 meets the
# filter's page, logged in or not; wired clients reach the address.
#
#   client-1-1 eth0 -- wlan-1-1 \
#   client-1-2 eth0 -- wlan-1-2  br0 -- uplink0 -- upstream (4.4.4.4 too)
#   client-lan0 eth0 ---- lan0  /

make_topology 1-1 1-2 lan0
in_upstream ip address add 4.4.4.4/32 dev servers
start_services
give_address 1-1 61
give_address 1-2 62
give_address lan0 63
load_module
cpctl interface set wlan-1-1 mode on
cpctl client add login "$(mac_of 1-1)" wlan-1-1

step "off"
expect_real_page 1-1 http://4.4.4.4/
step "on"
cpctl dns-filter on
expect_portal_page 1-1 http://4.4.4.4/filtered 88
expect_portal_page 1-1 https://4.4.4.4/filtered 89
expect_portal_page 1-2 http://4.4.4.4/filtered 88
expect_no_connection 1-1 http://4.4.4.4:8080/
expect_ping 1-1 4.4.4.4
expect_real_page lan0 http://4.4.4.4/
expect_real_page 1-1 http://www.example.net/
cpctl client del login "$(mac_of 1-1)" wlan-1-1
expect_portal_page 1-1 http://4.4.4.4/filtered 88
step "off again"
cpctl dns-filter off
expect_portal_page 1-1 http://4.4.4.4/shut 10081
expect_real_page 1-2 http://4.4.4.4/
