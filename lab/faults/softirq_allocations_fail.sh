# What the hooks allocate fails, one request after the other: the connection of
# a SYN, and its index's next part; of a DNS answer the copy that it is read
# from, the notes where its names end, the entry, the name and the name's copy.
# The SYN is redirected all the same, its reply comes from the access point
# itself, and the client's next try is served. A DNS answer passes, and nothing
# of the address is kept; without the notes all is kept; a name that is missing
# for a known address leaves mask and names as they were, and raises the
# deadline.
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

failed=0
fail_allocation() { order fail_atomic_allocation "$1"; }
allocation_has_failed() { has_failed fail_atomic_allocation && failed=$((failed + 1)); }
connections_are() { (($(connections_of wlan-1-1) == $1)); }

step "a SYN without a connection"
start_capture client 1-1 eth0
fail_allocation 1
expect_portal_page 1-1 http://203.0.113.10/next 10081
allocation_has_failed || fail "no allocation failed"
stop_capture client
# The client gave the access point's own answer a reset, and sent its SYN once more.
expect_captured client "src $AP_ADDRESS and tcp src port 10081 and tcp[tcpflags] & (tcp-syn|tcp-ack) = (tcp-syn|tcp-ack)"
expect_captured client "src 203.0.113.10 and tcp src port 80 and tcp[tcpflags] & (tcp-syn|tcp-ack) = (tcp-syn|tcp-ack)"
syns=$(count_captured client "dst 203.0.113.10 and tcp dst port 80 and tcp[tcpflags] & (tcp-syn|tcp-ack) = tcp-syn")
((syns == 2)) || fail "the client sent $syns SYNs, not two"

syn() { send_frames client-1-1/eth0 linear "$client_mac" tcp/203.0.113.10/80 "client-port=$1"; }
# answered_from ADDRESS CLIENT_PORT
answered_from() { has_captured syns "src $1 and tcp dst port $2 and tcp[tcpflags] & (tcp-syn|tcp-ack) = (tcp-syn|tcp-ack)"; }

# each_syn WHAT CONNECTIONS REQUESTS FIRST_PORT  one SYN after the other, until one lacks nothing.
each_syn() {
	local number port
	step "$1"
	for ((number = 1; ; number++)); do
		port=$(($4 + number))
		fail_allocation "$number"
		syn "$port"
		wait_until 10 "SYN $number is answered" answered_from "$AP_ADDRESS or src 203.0.113.10" "$port"
		allocation_has_failed || break
		answered_from "$AP_ADDRESS" "$port" || fail "SYN $number has a connection without memory for it"
		expect_equal "connections after $number" "$2" "$(connections_of wlan-1-1)"
	done
	expect_equal "requests of $1" "$3" $((number - 1))
	answered_from 203.0.113.10 "$port" || fail "SYN $number was not rewritten"
	expect_equal "connections at the end" $(($2 + 1)) "$(connections_of wlan-1-1)"
}
# The client's kernel knows of none of these, and gives each answer a reset: no end that the module counts.
wait_until 10 "the pages' connections have ended" connections_are 0
start_capture syns 1-1 eth0 tcp
each_syn "a SYN" 0 1 2000
send_frames client-1-1/eth0 linear "$client_mac" tcp/203.0.113.10/80 client-port=10000-10510
wait_until 20 "512 connections are recorded" connections_are 512
each_syn "a SYN when the index's first part is full" 512 2 3000
stop_capture syns

# received COUNT  the client's frames of DNS answers so far.
received() { (($(count_captured answers 'udp src port 53') == $1)); }
answers=0

# Each sends an answer with this address.
from_access_point() { send_answers 1-1 "$name" 60 "$1"; }
in_two_pieces() { send_frames upstream/eth0 ring:28 "$GATEWAY_MAC" "answer/$name/$1" "to=$client_mac"; }
with_dear_names() { send_frames upstream/eth0 linear "$GATEWAY_MAC" "dear-answer/$name/$1" "to=$client_mac"; }

# each_answer WHAT SENDER NETWORK OUTCOME...  of an answer without its first request, without its second ...; a new address
# each time.
each_answer() {
	local what=$1 sender=$2 network=$3 number address
	shift 3
	step "$what"
	for ((number = 1; ; number++)); do
		address=$network.$number
		fail_allocation "$number"
		"$sender" "$address"
		answers=$((answers + 1))
		wait_until 10 "answer $number reaches the client" received "$answers"
		allocation_has_failed || break
		case ${!number-} in
		lost) expect_listed "$address" ;;
		stored) expect_listed "$address" "$address 1-1: $name" ;;
		*) fail "$what: request $number was not expected" ;;
		esac
	done
	expect_equal "requests of $what" $# $((number - 1))
	expect_listed "$address" "$address 1-1: $name"
}

start_capture answers 1-1 eth0 'udp src port 53'
# Long enough that an answer does not end with the headers.
name=longer-than-the-headers.garden.example
each_answer "an answer with a new address" from_access_point 198.51.100 lost lost lost
each_answer "the same in two pieces" in_two_pieces 198.51.101 lost lost lost lost
each_answer "the same behind dear names" with_dear_names 198.51.102 stored lost lost lost

step "an answer with a new name"
address=198.51.100.4
for ((number = 1; ; number++)); do
	ends=$(timeout_of $address)
	fail_allocation "$number"
	send_answers 1-1 ftp.garden.example $((60 + 1000 * number)) $address
	answers=$((answers + 1))
	wait_until 10 "answer $number reaches the client" received "$answers"
	allocation_has_failed || break
	expect_listed $address "$address 1-1: $name"
	(($(timeout_of $address) >= ends + 900)) || fail "the deadline is still $(timeout_of $address), as $ends"
done
expect_equal "requests of a new name" 2 $((number - 1))
expect_listed $address "$address 1-1: $name ftp.garden.example"
printf '    what failed: %s allocations\n' "$failed"
# 1 of the page, 1 + 2 of SYNs, 3 + 4 + 4 + 2 of answers.
expect_equal "failures" 17 "$failed"
