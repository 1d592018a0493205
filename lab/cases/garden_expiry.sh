# An address that DNS gave for a permitted name stays open for its time to live
# and shuts with the first expiry pass after that; another name with more time
# keeps it open. Deadlines are moments of the wall clock: setting it back keeps
# an address longer, setting it forward shuts one early (shown where waiting is
# free, as a pass comes every 24 or 60 seconds).
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream

make_topology 1-1
start_services
give_address 1-1 61
load_module
cpctl debug 3
cpctl interface set wlan-1-1 mode on
cpctl garden replace wlan-1-1 on '*.example.org'

# asks NAME ADDRESS SECONDS  and the address has that many seconds to live then; its deadline is in $deadline.
asks() {
	local before after
	before=$(date +%s)
	expect_equal "$1" "$2" "$(resolve 1-1 "$1")"
	after=$(date +%s)
	deadline=$(timeout_of "$2")
	((deadline >= before + $3 && deadline <= after + $3)) ||
		fail "$1, asked between $before and $after, has $3 seconds to live, but its address ends at $deadline"
}

# The moment of the last pass, by the wall clock.
last_pass() { log_since_start | sed -n 's/.*\[schedule_check\]in while loop, now=\([0-9]*\),.*/\1/p' | tail -n 1; }
pass_was_after() { (($(last_pass) + 0 > $1)); }
# The first pass may have been before lines were printed.
passes() { log_since_start | grep -cF '[schedule_check]in while loop' || true; }
more_passes_than() { (($(passes) > $1)); }

step "an hour to live, seconds, and seconds that a second name makes an hour"
asks long.example.org 203.0.113.40 3600
asks renewed.example.org 203.0.113.30 2
asks renewal.example.org 203.0.113.30 3600
hour_ends=$deadline
asks short.example.org 203.0.113.20 2
expect_real_page 1-1 http://203.0.113.20/

step "after its time, before the pass"
while (($(date +%s) <= deadline)); do sleep 0.5; done
if pass_was_after "$deadline"; then
	step "not looked at: on this slow machine the pass has come already"
else
	expect_real_page 1-1 http://203.0.113.20/
fi
step "the pass"
# Where waiting is free, looking is what costs.
! waiting_is_free || sleep 50
wait_until 120 "a pass comes" pass_was_after "$deadline"
expect_portal_page 1-1 http://203.0.113.20/ 10081
expect_real_page 1-1 http://203.0.113.30/
expect_real_page 1-1 http://203.0.113.40/
expect_listed all "203.0.113.30 1-1: renewed.example.org renewal.example.org" "203.0.113.40 1-1: long.example.org"
line=$(log_since_start | grep -F "]IP=203.0.113.20, timeout=$deadline, " | tail -n 1)
expect_contains "what the kernel's log says of it" " (delete)" "$line"
step "asked for again"
asks short.example.org 203.0.113.20 2
expect_real_page 1-1 http://203.0.113.20/

waiting_is_free || {
	step "the clock stays as it is: one more pass would have to be waited for"
	exit 0
}

step "the clock two hours back, a minute to live, and the clock an hour forward"
before=$(passes)
shift_clock -7200
asks mail.example.org 198.51.100.10 60
expect_real_page 1-1 http://198.51.100.10/
shift_clock -3600
sleep 55
wait_until 30 "one more pass comes" more_passes_than "$before"
step "what would have ended stays, and what would have stayed has ended"
expect_real_page 1-1 http://203.0.113.20/
expect_real_page 1-1 http://203.0.113.30/
expect_portal_page 1-1 http://198.51.100.10/ 10081
expect_listed 198.51.100.10
