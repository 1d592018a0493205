# TCP to the social-login address 2.2.2.2 meets the social-login page, from a
# client that is not logged in, from one that is, and from the wired side.
#
#   client-1-1 eth0 -- wlan-1-1 \
#   client-1-2 eth0 -- wlan-1-2  br0 -- uplink0 -- upstream
#   client-lan0 eth0 ---- lan0  /

make_topology 1-1 1-2 lan0
start_services
give_address 1-1 61
give_address 1-2 62
give_address lan0 63
load_module
cpctl interface set wlan-1-1 mode on
start_capture client 1-1 eth0
start_capture uplink upstream eth0

for client in 1-1 1-2 lan0; do
	step "client $client"
	expect_portal_page "$client" http://2.2.2.2/social 83
	expect_portal_page "$client" https://2.2.2.2/social 84
	expect_no_connection "$client" http://2.2.2.2:8080/
done

step "no walled garden frees it"
cpctl garden replace wlan-1-1 on 2.2.2.2 0.0.0.0/0
expect_portal_page 1-1 http://2.2.2.2/social 83
expect_real_page 1-1 http://203.0.113.10/everything-else

stop_capture client
stop_capture uplink
expect_captured client "ether src $GATEWAY_MAC and src 2.2.2.2 and tcp src port 443"
expect_replies_rewritten client
expect_not_captured uplink "dst 2.2.2.2 and tcp"
