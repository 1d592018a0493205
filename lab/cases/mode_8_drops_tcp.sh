# Mode 8: every TCP segment of a client that is not logged in is dropped; DHCP
# and DNS pass.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

make_topology 1-1
start_services
load_module
cpctl interface set wlan-1-1 mode drop-tcp
start_capture uplink upstream eth0
expect_success get_address_by_dhcp 1-1
expect_equal "www.example.net" 203.0.113.10 "$(resolve 1-1 www.example.net)"
expect_no_connection 1-1 http://203.0.113.10/
expect_no_connection 1-1 https://203.0.113.10/
stop_capture uplink
expect_not_captured uplink "ether src $(mac_of 1-1) and tcp"
step "login"
cpctl client add login "$(mac_of 1-1)" wlan-1-1
expect_real_page 1-1 http://203.0.113.10/
cpctl client flush login wlan-1-1
expect_no_connection 1-1 http://203.0.113.10/
