# What the hooks allocate fails, one request after the other: the connection of
# a first SYN, and the entry, the name and the name's copy of a DNS answer. The
# SYN is redirected all the same, its reply comes from the access point itself,
# and the client's next try is served. A DNS answer passes, and nothing of the
# address is kept; a name that is missing for a known address leaves mask and
# names as they were, and raises the deadline.
#
#   client-1-1 eth0 -- wlan-1-1 -- br0 -- uplink0 -- upstream
#
# The module has its test knobs.

KNOB=/sys/module/captive_portal/parameters/fail_atomic_allocation
fail_allocation() { echo "$1" >"$KNOB"; }
# Whether an allocation did fail since; takes the order back.
has_failed() {
	local left
	left=$(<"$KNOB")
	echo 0 >"$KNOB"
	((left == 0))
}

make_topology 1-1
start_services
give_address 1-1 61
load_module
[[ -w $KNOB ]] || fail "the module was built without test knobs"
cpctl interface set wlan-1-1 mode on
cpctl garden replace wlan-1-1 on '*.garden.example'
expect_portal_page 1-1 http://203.0.113.10/first 10081

step "a SYN without a connection"
start_capture client 1-1 eth0
fail_allocation 1
expect_portal_page 1-1 http://203.0.113.10/next 10081
has_failed || fail "no allocation failed"
stop_capture client
# The client gave the access point's own answer a reset, and sent its SYN once more.
expect_captured client "src $AP_ADDRESS and tcp src port 10081 and tcp[tcpflags] & (tcp-syn|tcp-ack) = (tcp-syn|tcp-ack)"
expect_captured client "src 203.0.113.10 and tcp src port 80 and tcp[tcpflags] & (tcp-syn|tcp-ack) = (tcp-syn|tcp-ack)"
syns=$(count_captured client "dst 203.0.113.10 and tcp dst port 80 and tcp[tcpflags] & (tcp-syn|tcp-ack) = tcp-syn")
((syns == 2)) || fail "the client sent $syns SYNs, not two"

# received COUNT  the client's frames of DNS answers so far.
received() { (($(count_captured answers 'udp src port 53') == $1)); }

step "an answer with a new address"
start_capture answers 1-1 eth0 'udp src port 53'
for ((number = 1; ; number++)); do
	fail_allocation "$number"
	send_answers 1-1 www.garden.example 60 198.51.100.77
	wait_until 10 "answer $number reaches the client" received "$number"
	has_failed || break
	expect_listed all
done
expect_equal "requests of a new address" 3 $((number - 1))
expect_listed all "198.51.100.77 1-1: www.garden.example"
answers=$number

step "an answer with a new name"
for ((number = 1; ; number++)); do
	ends=$(timeout_of 198.51.100.77)
	fail_allocation "$number"
	send_answers 1-1 ftp.garden.example $((60 + 1000 * number)) 198.51.100.77
	wait_until 10 "answer $number reaches the client" received $((answers + number))
	has_failed || break
	expect_listed all "198.51.100.77 1-1: www.garden.example"
	(($(timeout_of 198.51.100.77) >= ends + 900)) || fail "the deadline is still $(timeout_of 198.51.100.77), as $ends"
done
expect_equal "requests of a new name" 2 $((number - 1))
expect_listed all "198.51.100.77 1-1: www.garden.example ftp.garden.example"
