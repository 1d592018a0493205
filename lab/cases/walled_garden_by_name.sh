# The walled garden by name: what a DNS answer gave for a permitted name is open
# before login, for the interface whose garden permits it, and nothing else is;
# the proc file lists it.
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
cpctl garden replace wlan-1-1 on '*.example.org'
summary=/proc/cp_dns_aRecord/summary
rearmed_summary() {
	printf all >"$summary"
	cat "$summary"
}

step "unknown until a DNS answer has passed"
expect_portal_page 1-1 http://203.0.113.30/before 10081
step "after it"
expect_equal "garden.example.org" 203.0.113.30 "$(resolve 1-1 garden.example.org)"
expect_equal "www.example.net" 203.0.113.10 "$(resolve 1-1 www.example.net)"
expect_real_page 1-1 http://garden.example.org/after
expect_real_page 1-1 https://garden.example.org/after
expect_portal_page 1-1 http://www.example.net/ 10081
expect_no_connection 1-1 https://www.example.net/
expect_portal_page 1-2 http://203.0.113.30/other-interface 10082

step "the listing"
listing=$(rearmed_summary)
expect_contains "summary" "IP=203.0.113.30, timeout=" "$listing"
expect_contains "summary" "  match walled garden: 1-1" "$listing"
expect_contains "summary" "  fqdn = garden.example.org" "$listing"
expect_lacks "summary" 203.0.113.10 "$listing"
expect_contains "summary" "Finished..." "$listing"

step "other rules: what is cached is judged anew"
cpctl garden replace wlan-1-1 on www.example.net
expect_real_page 1-1 http://www.example.net/now
expect_portal_page 1-1 http://garden.example.org/now 10081
listing=$(rearmed_summary)
expect_contains "summary" "IP=203.0.113.10, timeout=" "$listing"
expect_lacks "summary" 203.0.113.30 "$listing"

step "a default rule holds for every interface"
cpctl garden default replace garden.example.org
cpctl interface set wlan-1-2 garden on
expect_real_page 1-1 http://garden.example.org/default
expect_real_page 1-2 http://garden.example.org/default
