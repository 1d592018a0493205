# With the portal off the module changes nothing: a client gets an address by
# DHCP, resolves names, and gets the page of the server that it asked.
#
#   client-1-1 eth0 -- wlan-1-1 \
#                                br0 (access point) -- uplink0 -- upstream
#   client-lan0 eth0 ---- lan0 /

make_topology 1-1 lan0
start_services
start_capture uplink upstream eth0
load_module

for client in 1-1 lan0; do
	step "client $client"
	expect_success get_address_by_dhcp "$client"
	expect_contains "address by DHCP" 192.168.100. "$(address_of "$client")"
	expect_equal "www.example.net" 203.0.113.10 "$(resolve "$client" www.example.net)"
	expect_real_page "$client" http://www.example.net/welcome
	expect_real_page "$client" https://www.example.com/
	expect_ping "$client" "$AP_ADDRESS"
	expect_ping "$client" 203.0.113.20
	expect_no_connection "$client" http://203.0.113.99/
done

step "no frame was changed on its way"
stop_capture uplink
for client in 1-1 lan0; do
	expect_captured uplink "ether src $(mac_of "$client") and src $(address_of "$client") and dst 203.0.113.10 and tcp dst port 80"
done
expect_not_captured uplink "src $AP_ADDRESS and tcp"
