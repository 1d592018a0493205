# What block_https does to HTTPS of a client that is not logged in: 0 lets it
# pass, 1 drops it where the walled garden is on and redirects it where it is
# off, 2 redirects it.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

make_topology 1-1
start_services
give_address 1-1 61
load_module
cpctl interface set wlan-1-1 mode on
start_capture uplink upstream eth0

step "the start value is 1: redirected while the walled garden is off"
expect_portal_page 1-1 https://www.example.net/start 10444

step "pass"
cpctl interface set wlan-1-1 block-https pass
expect_real_page 1-1 https://www.example.net/pass
expect_portal_page 1-1 http://www.example.net/pass 10081

step "block, walled garden on: dropped, HTTP is redirected"
cpctl interface set wlan-1-1 block-https block
cpctl garden replace wlan-1-1 on 203.0.113.20
expect_no_connection 1-1 https://www.example.net/
expect_portal_page 1-1 http://www.example.net/block 10081
expect_real_page 1-1 https://203.0.113.20/in-the-garden

step "redirect, walled garden on and off"
cpctl interface set wlan-1-1 block-https redirect
expect_portal_page 1-1 https://www.example.net/redirect 10444
cpctl interface set wlan-1-1 garden off
expect_portal_page 1-1 https://www.example.net/redirect 10444
expect_portal_page 1-1 https://203.0.113.20/not-in-the-garden 10444

stop_capture uplink
step "TLS reached the uplink only when it was to"
expect_captured uplink "dst 203.0.113.10 and tcp dst port 443"
expect_captured uplink "dst 203.0.113.20 and tcp dst port 443"
expect_not_captured uplink "tcp dst port 80"
