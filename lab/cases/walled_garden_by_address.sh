# Address rules of the walled garden: single addresses and networks pass before
# login, everything else meets the portal; rules are replaced whole.
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

expect_portal_page 1-1 http://203.0.113.20/ 10081
step "one address and one network"
cpctl garden replace wlan-1-1 on 203.0.113.20 198.51.100.0/24
expect_real_page 1-1 http://203.0.113.20/
expect_real_page 1-1 https://203.0.113.20/
expect_real_page 1-1 http://198.51.100.30/
expect_portal_page 1-1 http://203.0.113.10/ 10081
expect_no_ping 1-1 203.0.113.20
step "another interface has its own"
expect_portal_page 1-2 http://203.0.113.20/ 10082
step "switched off, the rules stay"
cpctl interface set wlan-1-1 garden off
expect_portal_page 1-1 http://203.0.113.20/ 10081
cpctl interface set wlan-1-1 garden on
expect_real_page 1-1 http://203.0.113.20/
step "replaced"
cpctl garden replace wlan-1-1 on 203.0.113.10
expect_real_page 1-1 http://203.0.113.10/
expect_portal_page 1-1 http://203.0.113.20/ 10081
expect_portal_page 1-1 http://198.51.100.30/ 10081
