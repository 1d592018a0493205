# The cache holds 16,384 addresses. The next one is not taken and stays shut,
# with a line in the kernel's log, while those that are there get new names and
# more time. New rules judge all of them anew. Expiry makes room (shown where
# waiting is free).
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

make_topology 1-1
start_services
give_address 1-1 61
load_module
cpctl interface set wlan-1-1 mode on
cpctl garden replace wlan-1-1 on '*.example.org'
# The access point has the client's hardware address when the answers come.
expect_portal_page 1-1 http://203.0.113.20/ 10081

count_listed() { listed "$1" | wc -l; }

step "full"
send_answers 1-1 fill.example.org 3600 x16383
send_answers 1-1 old.example.org 3600 203.0.113.20
expect_equal "entries" 16384 "$(count_listed all)"
expect_real_page 1-1 http://203.0.113.20/

step "one more"
expect_equal "its answer" 203.0.113.30 "$(resolve 1-1 garden.example.org)"
expect_log 'Exceed maximum (total_ip_count=16384), not add "A record" (is_match_wg=1, garden.example.org, 203.0.113.30)'
expect_portal_page 1-1 http://203.0.113.30/ 10081
expect_listed 203.0.113.30
step "more time, and a new name, for one that is there"
ends=$(timeout_of 203.0.113.20)
send_answers 1-1 new.example.net 5000 203.0.113.20
(($(timeout_of 203.0.113.20) >= ends + 1400)) || fail "the deadline is still $(timeout_of 203.0.113.20), as $ends"
expect_listed 203.0.113.20 "203.0.113.20 1-1: old.example.org new.example.net"

step "new rules, judged with every name"
cpctl garden replace wlan-1-1 on new.example.net
expect_equal "entries" 1 "$(count_listed all)"
expect_listed all "203.0.113.20 1-1: old.example.org new.example.net"
expect_real_page 1-1 http://203.0.113.20/
cpctl garden replace wlan-3-8 on 'f*l.example.*'
expect_equal "entries of wlan-3-8" 16383 "$(count_listed wlan-3-8)"
expect_equal "entries of wlan-1-1" 1 "$(count_listed wlan-1-1)"
expect_listed 203.0.113.20 "203.0.113.20 1-1: old.example.org new.example.net"
step "a name for every interface"
cpctl garden default replace fill.example.org
expect_equal "entries of wlan-2-2" 16383 "$(count_listed wlan-2-2)"
expect_equal "entries of mirel" 16383 "$(count_listed mirel)"

if waiting_is_free; then
	step "two hours later"
	shift_clock 7200
	sleep 65
	expect_equal "entries" 0 "$(count_listed all)"
	expect_equal "an answer" 203.0.113.30 "$(resolve 1-1 garden.example.org)"
	cpctl garden replace wlan-1-1 on garden.example.org
	expect_real_page 1-1 http://203.0.113.30/
else
	step "not waited for: the pass that makes room"
fi
