# What the hooks ask for with a packet fails: its headers in one piece, and a
# copy of its own to write into. A frame is judged by what is in one piece, at
# each hook anew: one whose headers nobody could bring together is dropped where
# the portal is on, and a DNS answer passes unread. What may not be written is
# dropped on its way in, its connection being known by then, and leaves as it is
# on its way out.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream
#
# The module has its test knobs.
# Time limit: 900 seconds, of which few are needed on a quiet host.

make_topology 1-1
start_services
give_address 1-1 61
load_module
need_knobs
cpctl interface set wlan-1-1 mode on
cpctl garden replace wlan-1-1 on '*.garden.example'
expect_portal_page 1-1 http://203.0.113.10/first 10081
client_mac=$(mac_of 1-1)

recorded() { counted wlan-1-1 connection-recorded; }
# syn FORM CLIENT_PORT
syn() { send_frames client-1-1/eth0 "$1" "$client_mac" tcp/203.0.113.10/80 "client-port=$2"; }
# answered_from ADDRESS CLIENT_PORT
answered_from() { has_captured syns "src $1 and tcp dst port $2 and tcp[tcpflags] & (tcp-syn|tcp-ack) = (tcp-syn|tcp-ack)"; }
# The client's kernel knows of none of these SYNs, and gives each answer a reset.
none_half_open() { ! awk '$4 == "03" { found = 1 } END { exit !found }' /proc/net/tcp; }
judged() { (($(recorded) + $(counted wlan-1-1 cut-short) == $1)); }

start_capture syns 1-1 eth0 tcp
step "headers of a SYN that has none in one piece"
# Of two hooks the first needs nothing of them.
failed_pulls=0
for ((pulls = 1; ; pulls++)); do
	before=$(recorded) before_cut=$(counted wlan-1-1 cut-short)
	order fail_pulls "$pulls"
	syn ring:0 $((2000 + pulls))
	wait_until 10 "the SYN is judged" judged $((before + before_cut + 1))
	expect_equal "connections without $pulls pulls" $((before + (pulls < 2))) "$(recorded)"
	expect_equal "frames cut short" $((before_cut + (pulls >= 2))) "$(counted wlan-1-1 cut-short)"
	has_failed fail_pulls || break
	failed_pulls=$((failed_pulls + pulls))
done
expect_equal "pulls of a SYN" 2 $((pulls - 1))
wait_until 10 "the first SYN is answered" answered_from 203.0.113.10 2001
syn ring:0 2000
wait_until 10 "a SYN that got all its pulls is answered" answered_from 203.0.113.10 2000
wait_until 20 "no connection is half open" none_half_open
expect_not_captured syns "tcp dst port 2002 or tcp dst port 2003"

step "headers of a DNS answer that has none in one piece"
# received COUNT  the client's frames of DNS answers so far.
received() { (($(count_captured answers 'udp src port 53') == $1)); }
start_capture answers 1-1 eth0 'udp src port 53'
name=www.garden.example
answer() { send_frames upstream/eth0 ring:0 "$GATEWAY_MAC" "answer/$name/$1" "to=$client_mac"; }
# Two hooks on its way in, and the one that reads it.
for ((pulls = 1; ; pulls++)); do
	address=198.51.100.$pulls
	order fail_pulls "$pulls"
	answer "$address"
	wait_until 10 "the answer reaches the client" received "$pulls"
	if ((pulls < 3)); then
		expect_listed "$address" "$address 1-1: $name"
	else
		expect_listed "$address"
	fi
	has_failed fail_pulls || break
	failed_pulls=$((failed_pulls + pulls))
done
expect_equal "pulls of an answer" 3 $((pulls - 1))
answer "$address"
wait_until 10 "the answer reaches the client" received $((pulls + 1))
expect_listed "$address" "$address 1-1: $name"

step "a copy to write into"
# The SYN, its answer, and the client's reset.
for ((writes = 0; ; writes++)); do
	port=$((3001 + writes)) before=$(recorded) before_drops=$(counted wlan-1-1 not-rewritable)
	order fail_writable $((writes + 1))
	syn linear "$port"
	wait_until 10 "the connection is recorded" judged $((before + 1 + $(counted wlan-1-1 cut-short)))
	((writes == 0)) || wait_until 10 "the SYN is answered" answered_from "$AP_ADDRESS or src 203.0.113.10" "$port"
	# What got no reset is answered once more, and then all is as ever.
	wait_until 30 "no connection is half open" none_half_open
	has_failed fail_writable || break
	case $writes in
	0)
		expect_equal "drops" $((before_drops + 1)) "$(counted wlan-1-1 not-rewritable)"
		expect_not_captured syns "tcp dst port $port"
		;;
	1)
		answered_from "$AP_ADDRESS" "$port" || fail "an answer that could not be written was rewritten"
		expect_equal "drops" "$before_drops" "$(counted wlan-1-1 not-rewritable)"
		;;
	2) expect_equal "drops" $((before_drops + 1)) "$(counted wlan-1-1 not-rewritable)" ;;
	esac
done
expect_equal "writes of a SYN, its answer and its reset" 3 "$writes"
answered_from 203.0.113.10 "$port" || fail "the answer was not rewritten"
if answered_from "$AP_ADDRESS" "$port"; then fail "the answer came as it was, too"; fi
stop_capture syns
stop_capture answers
expect_portal_page 1-1 http://203.0.113.10/last 10081
printf '    what failed: %s pulls of headers, %s requests for a copy to write into\n' "$failed_pulls" "$writes"
