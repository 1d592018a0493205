# The MIREL lists hold for every interface and go before login: black-listed
# clients see the MIREL pages, white-listed ones pass. With that portal off the
# lists mean nothing.
#
#   client-1-1 eth0 -- wlan-1-1 \
#                                br0 -- uplink0 -- upstream
#   client-2-2 eth0 -- wlan-2-2 /     (portal off on wlan-2-2)

make_topology 1-1 2-2
start_services
give_address 1-1 61
give_address 2-2 62
load_module
cpctl interface set wlan-1-1 mode on
first=$(mac_of 1-1) second=$(mac_of 2-2)

step "listed, and the MIREL portal off"
cpctl client add mirel-black "$second"
cpctl client add mirel-white "$first"
expect_portal_page 1-1 http://www.example.net/shut 10081
expect_real_page 2-2 http://www.example.net/open

step "the MIREL portal on"
cpctl mirel mode on
expect_real_page 1-1 http://www.example.net/white
expect_portal_page 2-2 http://www.example.net/black 86
expect_portal_page 2-2 https://www.example.net/black 87
expect_no_ping 2-2 203.0.113.10
expect_equal "DNS still answers" 203.0.113.10 "$(resolve 2-2 www.example.net)"

step "a login does not help, the MIREL garden does"
cpctl client add login "$second" wlan-2-2
expect_portal_page 2-2 http://www.example.net/black 86
cpctl mirel garden replace on 203.0.113.20
expect_real_page 2-2 http://www.example.com/garden
expect_portal_page 2-2 http://www.example.net/black 86
expect_no_connection 2-2 https://www.example.net/

step "from the black list to the white list, and off both"
cpctl client add mirel-white "$second"
expect_real_page 2-2 http://www.example.net/white
cpctl client add mirel-black "$first"
expect_real_page 1-1 http://www.example.net/white-goes-first
cpctl client del mirel-white "$first"
expect_portal_page 1-1 http://www.example.net/shut 10081
