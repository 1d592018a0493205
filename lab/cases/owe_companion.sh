# Frames on an OWE companion interface are judged as if they came on the
# interface that it is paired with; without a pair they are dropped.
#
#   client-1-14 eth0 -- wlan-1-14 \
#                                  br0 -- uplink0 -- upstream
#   client-2-15 eth0 -- wlan-2-15 /

make_topology 1-14 2-15
start_services
give_address 1-14 61
give_address 2-15 62
load_module

step "without a pair"
expect_no_connection 1-14 http://203.0.113.10/
expect_no_ping 1-14 "$AP_ADDRESS"

step "paired with interfaces without a portal"
cpctl interface owe map wlan-1-14 wlan-1-3
cpctl interface owe map wlan-2-15 wlan-2-1
expect_real_page 1-14 http://203.0.113.10/open
expect_real_page 2-15 http://203.0.113.10/open

step "the pair's portal, port and login"
cpctl interface set wlan-1-3 mode on
expect_portal_page 1-14 http://203.0.113.10/shut 10083
expect_real_page 2-15 http://203.0.113.10/open
cpctl client add login "$(mac_of 1-14)" wlan-1-3
expect_real_page 1-14 http://203.0.113.10/open
cpctl client del login "$(mac_of 1-14)" wlan-1-3
expect_portal_page 1-14 http://203.0.113.10/shut 10083

step "paired anew"
cpctl interface owe map wlan-1-14 wlan-1-4
expect_real_page 1-14 http://203.0.113.10/open

step "flush"
cpctl interface owe flush
expect_no_connection 1-14 http://203.0.113.10/
expect_no_connection 2-15 http://203.0.113.10/
