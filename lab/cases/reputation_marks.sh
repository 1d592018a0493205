# A firewall rule of the access point marks what has a bad reputation, between
# the module's two pre-routing hooks; the client meets the page of that rule.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

make_topology 1-1
start_services
give_address 1-1 61
load_module
expect_real_page 1-1 http://203.0.113.30/

nft -f - <<END
table bridge reputation {
	chain prerouting {
		type filter hook prerouting priority -315; policy accept;
		ether type ip ip daddr 203.0.113.30 meta mark set 5307
		ether type ip ip daddr 203.0.113.40 meta mark set 5323
		ether type ip ip daddr 203.0.113.20 meta mark set 5306
	}
}
END
step "first and last rule"
expect_portal_page 1-1 http://203.0.113.30/bad 1025
expect_portal_page 1-1 https://203.0.113.30/bad 1042
expect_portal_page 1-1 http://203.0.113.40/bad 1041
expect_portal_page 1-1 https://203.0.113.40/bad 1058
expect_no_connection 1-1 http://203.0.113.30:8080/
expect_ping 1-1 203.0.113.30
step "a mark beside them, and no mark"
expect_real_page 1-1 http://203.0.113.20/
expect_real_page 1-1 http://203.0.113.10/
step "without the rule"
nft delete table bridge reputation
expect_real_page 1-1 http://203.0.113.30/
