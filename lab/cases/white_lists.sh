# The three lists of clients that pass without login: white list, the list for
# walled-garden access, and the fallback of MAC authentication.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

make_topology 1-1
start_services
give_address 1-1 61
load_module
cpctl interface set wlan-1-1 mode on
mac=$(mac_of 1-1)

for table in white ga-white mac-auth-fallback; do
	step "$table"
	expect_portal_page 1-1 http://www.example.net/shut 10081
	cpctl client add "$table" "$mac" wlan-1-1
	expect_real_page 1-1 http://www.example.net/open
	# Unlike a logged-in client, one of these is not logged out by a visit.
	cpctl interface set wlan-1-1 logout 203.0.113.10
	expect_real_page 1-1 http://www.example.net/open
	cpctl interface set wlan-1-1 logout none
	cpctl client del "$table" "$mac" wlan-1-1
done
expect_portal_page 1-1 http://www.example.net/shut 10081

step "flush all"
cpctl client add white "$mac" wlan-1-1
cpctl client add mac-auth-fallback "$mac" wlan-1-1
cpctl client flush mac-auth-fallback all
expect_real_page 1-1 http://www.example.net/open
cpctl client flush portal all
expect_portal_page 1-1 http://www.example.net/shut 10081
