# What becomes of frames is counted by interface and reason, each frame once.
#
#   client-1-1 eth0 -- wlan-1-1 \
#                                br0 -- uplink0 -- upstream
#   client-1-2 eth0 -- wlan-1-2 /     (portal off on wlan-1-2)

# The counts but those of clients that nobody keeps from anything: machines send IPv6 of their own accord.
counts_of_the_portal() { grep -v ' reason=no-portal ' /proc/captive_portal/counters || true; }

# What was marked is what the second hook has counted. A frame that is under way is counted by the first one alone.
marks_add_up() {
	counts_of_the_portal |
		awk -F'[ =]' '$3 == "wlan-1-1" && $5 !~ /^(connection|reply)-/ { if ($5 == "marked-portal") sum += $7; else sum -= $7 }
		END { exit sum != 0 }'
}

make_topology 1-1 1-2
start_services
give_address 1-1 61
give_address 1-2 62
load_module
expect_equal "what a fresh module has counted" "" "$(counts_of_the_portal)"
cpctl interface set wlan-1-1 mode on

step "before login"
for _ in 1 2 3; do in_client 1-1 ping -c 1 -W 1 203.0.113.10 >/dev/null || true; done
expect_equal "pings" 3 "$(counted wlan-1-1 icmp)"
expect_portal_page 1-1 http://www.example.net/shut 10081
expect_equal "connections" 1 "$(counted wlan-1-1 connection-recorded)"
redirected=$(counted wlan-1-1 redirect-portal)
((redirected >= 4)) || fail "the client's segments of one request: $redirected"
wait_until 5 "each marked frame has come to something" marks_add_up
((4 <= $(counted wlan-1-1 reply-rewritten))) || fail "replies: $(counted wlan-1-1 reply-rewritten)"
((0 < $(counted wlan-1-1 dhcp-dns))) || fail "the client has asked for a name"
((0 < $(counted other dns-answer))) || fail "the client was answered"

step "an interface without a portal counts what passes, and nothing else"
passed=$(counted wlan-1-2 no-portal)
in_client 1-2 ping -c 3 -i 0.2 203.0.113.10 >/dev/null
((passed + 3 <= $(counted wlan-1-2 no-portal))) || fail "passed: $passed, then $(counted wlan-1-2 no-portal)"
expect_real_page 1-2 http://www.example.net/open
expect_equal "wlan-1-2" "" "$(counts_of_the_portal | grep ' interface=wlan-1-2 ' || true)"

step "what a table admits is counted as that table's"
cpctl client add login "$(mac_of 1-1)" wlan-1-1
marked=$(counted wlan-1-1 marked-portal)
passed=$(counted wlan-1-1 login)
in_client 1-1 ping -c 3 -i 0.2 203.0.113.10 >/dev/null
expect_equal "marked" "$marked" "$(counted wlan-1-1 marked-portal)"
((passed + 3 <= $(counted wlan-1-1 login))) || fail "passed: $passed, then $(counted wlan-1-1 login)"
expect_equal "of a table that lists nobody" 0 "$(counted wlan-1-1 white)"
expect_equal "pings before login" 3 "$(counted wlan-1-1 icmp)"
[[ $(cpctl status -s) == *"dropped: ICMP"* ]] || fail "$(cpctl status -s)"
[[ $(cpctl metrics) == *'{interface="wlan-1-1",reason="icmp"} 3'$'\n'* ]] || fail "$(cpctl metrics)"

step "a new load begins at zero"
unload_module
load_module
expect_equal "what is counted" "" "$(counts_of_the_portal)"
